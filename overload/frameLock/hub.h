// The hub of a frame lock, a thread of the first server: lets each swap go once all servers have
// come to it. One that does not come holds the others for a while, and is then left out until it
// has caught up.
#pragma once

#include <chrono>
#include <string>

namespace frameLock {

struct HubOptions {
    std::string host; // of this machine, at whose addresses the hub listens
    int port = 0;
    int servers = 0;                    // of the job
    std::string secret;                 // of secretBytes at most; who does not know it is sent away
    std::chrono::milliseconds joinTime; // to come at all
    std::chrono::milliseconds holdTime; // to come to a swap
    bool summary = false;               // of who waited for whom, at the end
};

/// Starts the thread. Throws std::system_error when it cannot listen.
void startHub(const HubOptions& options);

/// Prints the summary, if it is wanted and has not been printed yet. For the end of the process.
void printHubSummary();

} // namespace frameLock
