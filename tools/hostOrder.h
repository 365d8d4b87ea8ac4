// Hosts that stand in another order than the entries that are meant for them, where that can be
// told.
#pragma once

#include "tools/wallCheck.h"

#include <map>

/// By the file: where an entry itself says whose it is, in its display's name or in the comment
/// before it, and that is another node of the job.
void checkHosts(const Wall& wall, const std::vector<Place>& places, std::vector<Finding>& findings);

/// What a server's node has answered.
struct NodeAnswer {
    Finding finding{};
    Size screen{};
    long up = 0;         // seconds since the node has started
    long long bytes = 0; // of memory that are free there
};

/// By the screens: one of another size than its tile, where another node has one of that size. Says
/// so in its finding.
void judgeOrder(const Wall& wall, const std::vector<Place>& places,
                std::map<std::size_t, NodeAnswer>& answers);
