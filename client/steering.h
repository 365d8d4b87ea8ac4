// What play is told while it plays, by lines on its standard input: where the job's area of the
// wall is to stand.
#pragma once

#include <string>
#include <vector>

/// The lines, as mosa-wall writes them and play reads them.
std::string moveLine(int left, int top); // of the area, from the wall's upper left
inline constexpr char raiseLine[] = "raise\n";

/// A standard input that is listened to.
struct Steering {
    int fd = -1;           // can be read when there is something; -1: it is not listened to, or
    bool hasEnded = false; // nothing will be said any more
    std::string rest;      // of a line that has not come whole
};

/// Takes in what has been said, without waiting: records for the servers, or none. Of moves that
/// have come together the last one counts.
std::vector<unsigned char> takeSteering(Steering& steering);
