// The nodes of a job, watched from here: mpiexec reaches each through ssh, and would wait for one
// that is gone.
#pragma once

#include "overload/lifeline.h"
#include "overload/socket.h"
#include "tools/mpiJob.h"

#include <list>
#include <map>
#include <optional>
#include <string>

/// This machine's name, by which the nodes know it.
std::string ownHostName();

/// Has servers say who they are and end when this process is gone; where there are hosts, also ssh
/// give up soon on a node that does not answer.
void watchNodes(Job& job);

/// A connection over which nobody has said yet that it is a server's.
struct Newcomer {
    int fd;
    net::Incoming<LifelineHello> incoming;
};

/// How a server goes, over its last second.
struct ServerFigures {
    double framesPerSecond = 0;
    long behind = 0;     // frames that the furthest server has shown and this one has not
    int decoding = 0;    // percent of a core, of its decode thread
    long long bytes = 0; // of memory in use
};

/// A server's connection.
struct Lifeline {
    std::string name; // "server 1 on node2"
    int server = 0;   // its number
    net::Incoming<LifelineFigures> incoming = {};
    LifelineFigures latest = {}, before = {};
    JobClock::time_point heard = {}; // the latest
};

/// What is known of a job's nodes while it runs.
struct NodeWatch {
    std::map<pid_t, std::string> launchers; // what mpiexec has started to reach the nodes; names
    std::list<Newcomer> newcomers;
    std::map<int, Lifeline> lifelines;  // of the servers, by their connections
    std::map<int, std::string> servers; // all that there have been, by their process numbers
    std::string ended;                  // the first server that has ended,
    JobClock::time_point endedAt;
    int client = -1; // pidfd of the client while it runs: for poll(2)
    bool clientSeen = false, clientEndedFirst = false; // before any server
    // When a server's end was heard of first: either may be the cause.
    bool clientEndedToo = false, clientKilled = false;
    pid_t clientPid = -1; // once it has been seen
};

/// True when one of the programs that mpiexec has started to reach the nodes has ended with a
/// fault.
bool launcherFailed(pid_t mpiexec);

/// Looks after the nodes. Returns what is wrong when the job has to be ended, or an empty string: a
/// node that cannot be reached any more, a server that has ended while others wait for it.
std::string nodeTrouble(NodeWatch& watch, pid_t mpiexec);

/// What a server has said of itself; none when it has said nothing yet, or has ended.
std::optional<ServerFigures> figuresOf(const NodeWatch& watch, int server);

/// Notes that the client has ended; to be called as soon as that is known.
void clientHasEnded(NodeWatch& watch);
