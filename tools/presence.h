// A job that runs can be asked what it shows and where, and told to move, come to the top or end:
// by other runs of mosa-wall, over a local socket among its temporary files, which are the user's
// alone. A request is a line, its answer lines of a key and a value, and an empty one.
#pragma once

#include "tools/about.h"
#include "tools/nodeWatch.h"

#include <optional>
#include <string>
#include <vector>

#include <poll.h>

struct Asker {
    int fd;
    std::string line;
};

/// A job's socket.
struct Presence {
    About about;
    std::string path;
    int listening = -1;
    long since = 0; // seconds since 1970
    std::vector<Asker> askers;
    bool mustStop = false; // has been asked for
};

/// Begins to listen, under the name that is wanted, without blanks and with a number where a job
/// that runs has it. A job that cannot be asked says why in a line, and runs.
void appear(Presence& presence, const About& about);
void disappear(Presence& presence);

/// What is to be looked at by poll(2).
void addDescriptors(const Presence& presence, std::vector<pollfd>& events);

/// Answers what has been asked. What play is to be told is written to `steering`, the pipe to its
/// standard input.
void answerAskers(Presence& presence, const NodeWatch& nodes, int steering);

// ---- The other side ----------------------------------------------------------------------------

/// What a job has said of one of its servers.
struct ServerReport {
    PresentServer server;
    std::optional<ServerFigures> figures; // none: it does not answer (yet)
};

struct JobReport {
    std::string path; // of its socket
    std::string name, shows, wall;
    std::string area; // empty: all of the wall
    bool isMovable = false;
    long since = 0;
    int pid = 0;
    std::vector<ServerReport> servers;
};

/// This user's jobs that run here and answer, the oldest first.
std::vector<JobReport> runningJobs();

/// The one of that name, or the only one without a name. Throws std::runtime_error.
JobReport runningJob(const std::string& name);

/// A connection to a job; each request gives its answer, or throws std::runtime_error with why it
/// is refused.
struct JobConnection {
    explicit JobConnection(const JobReport& job);
    ~JobConnection();
    JobConnection(const JobConnection&) = delete;
    JobConnection& operator=(const JobConnection&) = delete;
    int fd;
    std::string rest;
};
void tellJob(JobConnection& job, const std::string& request);
