#include "tools/presence.h"
#include "client/captureProtocol.h"
#include "client/steering.h"
#include "tools/wallArea.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr char fileName[] = "presence";
constexpr std::size_t longestRequest = 1000;

// A socket that listens at a path, or that is connected to it; -1 without.
int openSocket(const std::string& path, int (*use)(int, const sockaddr*, socklen_t))
{
    sockaddr_un address;
    const int fd = localAddress(path.c_str(), address)
                       ? socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)
                       : -1;
    if (fd >= 0 && use(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return fd;
    const int error = errno;
    if (fd >= 0)
        close(fd);
    errno = error;
    return -1;
}

int bindAndListen(int fd, const sockaddr* address, socklen_t size)
{
    constexpr int waiting = 16;
    return bind(fd, address, size) == 0 ? listen(fd, waiting) : -1;
}

// ---- What is asked for -------------------------------------------------------------------------

struct Request {
    Presence& presence;
    const NodeWatch& nodes;
    int steering;
    std::string argument;
};

std::string describe(const Request& request)
{
    const Presence& presence = request.presence;
    const About& about = presence.about;
    std::ostringstream text;
    text << "name " << about.name << "\nshows " << about.shows << "\nwall " << toText(about.wall)
         << "\nsince " << presence.since << "\npid " << getpid() << "\n";
    if (about.area)
        text << "area " << areaText(about.area->area, about.wall) << "\n";
    if (about.area && about.area->isMovable)
        text << "movable 1\n";
    for (std::size_t n = 0; n < about.servers.size(); ++n) {
        const PresentServer& server = about.servers[n];
        text << "server " << server.tile << " " << server.display << " "
             << (server.host.empty() ? "-" : server.host);
        if (const auto figures = figuresOf(request.nodes, static_cast<int>(n)))
            text << " " << figures->framesPerSecond << " " << figures->behind << " "
                 << figures->decoding << " " << figures->bytes;
        text << "\n";
    }
    return text.str();
}

// Hands a line to play. Throws when it does not take it.
void steer(const Request& request, const std::string& line)
{
    // A line is short: the pipe takes all of it, or nothing while play does not read.
    if (write(request.steering, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
        throw std::runtime_error("the wall does not take it in");
}

JobArea& areaOf(const Request& request)
{
    if (!request.presence.about.area)
        throw std::runtime_error(request.presence.about.name +
                                 " has all of the wall: start it with --at to have it in an area");
    return *request.presence.about.area;
}

std::string raiseArea(const Request& request)
{
    areaOf(request);
    steer(request, raiseLine);
    return {};
}

std::string moveArea(const Request& request)
{
    JobArea& job = areaOf(request);
    const About& about = request.presence.about;
    if (!job.isMovable)
        throw std::runtime_error(about.name + " stays where it is: start it with --movable");
    const PixelArea place = parsePlace(request.argument, about.wall, {job.area.w, job.area.h});
    if (isEmpty(commonArea(place, {0, 0, about.wall.w, about.wall.h})))
        throw std::runtime_error("nothing of it would be on the wall, " + toText(about.wall));
    steer(request, moveLine(place.x, about.wall.h - place.y - place.h));
    job.area = place;
    return {};
}

std::string stop(const Request& request)
{
    request.presence.mustStop = true;
    return {};
}

constexpr std::pair<const char*, std::string (*)(const Request&)> requests[] = {
    {"about", describe}, {"raise", raiseArea}, {"move", moveArea}, {"stop", stop}};

std::string answerTo(Presence& presence, const NodeWatch& nodes, int steering,
                     const std::string& line)
{
    const std::string word = line.substr(0, line.find(' '));
    const auto* const known = std::ranges::find_if(
        requests, [&word](const auto& request) { return request.first == word; });
    if (known == std::end(requests))
        return "error it is not known what \"" + word + "\" is\n\n";
    const std::string argument = line.size() > word.size() ? line.substr(word.size() + 1) : "";
    try {
        return known->second({presence, nodes, steering, argument}) + "\n";
    } catch (const std::exception& refusal) {
        return std::string("error ") + refusal.what() + "\n\n";
    }
}

// Takes in what one asks, and answers it. False when it is done.
bool answer(Presence& presence, const NodeWatch& nodes, int steering, Asker& asker)
{
    char chunk[longestRequest];
    const ssize_t got = recv(asker.fd, chunk, sizeof chunk, 0);
    if (got < 0 && (errno == EAGAIN || errno == EINTR))
        return true;
    if (got <= 0)
        return false;
    asker.line.append(chunk, static_cast<std::size_t>(got));
    for (std::size_t end = 0; (end = asker.line.find('\n')) != asker.line.npos;) {
        const std::string reply = answerTo(presence, nodes, steering, asker.line.substr(0, end));
        asker.line.erase(0, end + 1);
        // One that does not read its answers is left.
        if (send(asker.fd, reply.data(), reply.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(reply.size()))
            return false;
    }
    return asker.line.size() < longestRequest;
}

std::string freeName(const std::string& wanted)
{
    std::string base;
    for (const char c : wanted.substr(wanted.rfind('/') + 1))
        base += std::isgraph(static_cast<unsigned char>(c)) ? c : '-';
    if (base.empty())
        base = "job";
    const std::vector<JobReport> others = runningJobs();
    const auto isTaken = [&others](const std::string& name) {
        return std::ranges::find(others, name, &JobReport::name) != others.end();
    };
    std::string name = base;
    for (int i = 2; isTaken(name); ++i)
        name = base + "-" + std::to_string(i);
    return name;
}

// Jobs take their names one after the other: a lock on the folder in which each has its own. Who
// does not get it in time goes on without it.
struct NamesLock {
    explicit NamesLock(const std::string& socket)
        : fd(open(std::filesystem::path(socket).parent_path().parent_path().c_str(),
                  O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        constexpr int attempts = 200, pause = 10; // milliseconds
        for (int i = 0; i < attempts && flock(fd, LOCK_EX | LOCK_NB) != 0; ++i)
            poll(nullptr, 0, pause);
    }
    ~NamesLock() { close(fd); }
    NamesLock(const NamesLock&) = delete;
    NamesLock& operator=(const NamesLock&) = delete;
    int fd;
};

} // namespace

void appear(Presence& presence, const About& about)
{
    presence.about = about;
    presence.since = static_cast<long>(std::time(nullptr));
    presence.path = temporaryName(fileName);
    const NamesLock lock(presence.path);
    presence.about.name = freeName(about.name);
    presence.listening = openSocket(presence.path, bindAndListen);
    if (presence.listening < 0)
        std::fprintf(stderr,
                     "mosa-wall: note: list, move and stop will not find this job: %s: %s\n",
                     presence.path.c_str(), std::strerror(errno));
}

void disappear(Presence& presence)
{
    for (const Asker& asker : presence.askers)
        close(asker.fd);
    presence.askers.clear();
    if (presence.listening < 0)
        return;
    close(std::exchange(presence.listening, -1));
    unlink(presence.path.c_str());
}

void addDescriptors(const Presence& presence, std::vector<pollfd>& events)
{
    events.push_back({presence.listening, POLLIN, 0});
    for (const Asker& asker : presence.askers)
        events.push_back({asker.fd, POLLIN, 0});
}

void answerAskers(Presence& presence, const NodeWatch& nodes, int steering)
{
    constexpr std::size_t most = 64; // the oldest make room
    if (presence.listening < 0)
        return;
    for (int fd = -1;
         (fd = accept4(presence.listening, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)) >= 0;) {
        if (presence.askers.size() == most) {
            close(presence.askers.front().fd);
            presence.askers.erase(presence.askers.begin());
        }
        presence.askers.push_back({fd, {}});
    }
    std::erase_if(presence.askers, [&](Asker& asker) {
        if (answer(presence, nodes, steering, asker))
            return false;
        close(asker.fd);
        return true;
    });
}

// ---- The other side ----------------------------------------------------------------------------

namespace {

// The lines of an answer. Throws when there is none in time, or it is a refusal.
std::vector<std::string> ask(JobConnection& job, const std::string& request)
{
    constexpr int patience = 3000; // milliseconds, for a job whose mosa-wall is stopped
    const std::string line = request + "\n";
    if (send(job.fd, line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size()))
        throw std::runtime_error("the job has ended");
    std::vector<std::string> lines;
    for (;;) {
        const std::size_t end = job.rest.find('\n');
        if (end == job.rest.npos) {
            char chunk[4096];
            pollfd readable{job.fd, POLLIN, 0};
            if (poll(&readable, 1, patience) <= 0)
                throw std::runtime_error("the job does not answer");
            const ssize_t got = recv(job.fd, chunk, sizeof chunk, 0);
            if (got <= 0)
                throw std::runtime_error("the job has ended");
            job.rest.append(chunk, static_cast<std::size_t>(got));
            continue;
        }
        const std::string next = job.rest.substr(0, end);
        job.rest.erase(0, end + 1);
        if (next.empty())
            return lines;
        if (next.starts_with("error "))
            throw std::runtime_error(next.substr(next.find(' ') + 1));
        lines.push_back(next);
    }
}

ServerReport serverReport(const std::string& text)
{
    std::istringstream words(text);
    ServerReport report{};
    ServerFigures figures{};
    words >> report.server.tile >> report.server.display >> report.server.host;
    if (report.server.host == "-")
        report.server.host.clear();
    if (words >> figures.framesPerSecond >> figures.behind >> figures.decoding >> figures.bytes)
        report.figures = figures;
    return report;
}

JobReport reportOf(const std::string& path)
{
    JobReport job{.path = path, .name = {}, .shows = {}, .wall = {}, .area = {}, .servers = {}};
    JobConnection connection(job);
    for (const std::string& line : ask(connection, "about")) {
        const std::size_t blank = std::min(line.find(' '), line.size() - 1);
        const std::string key = line.substr(0, blank), value = line.substr(blank + 1);
        if (key == "name")
            job.name = value;
        else if (key == "shows")
            job.shows = value;
        else if (key == "wall")
            job.wall = value;
        else if (key == "area")
            job.area = value;
        else if (key == "movable")
            job.isMovable = true;
        else if (key == "since")
            job.since = std::atol(value.c_str());
        else if (key == "pid")
            job.pid = std::atoi(value.c_str());
        else if (key == "server")
            job.servers.push_back(serverReport(value));
    }
    return job;
}

} // namespace

JobConnection::JobConnection(const JobReport& job) : fd(openSocket(job.path, connect))
{
    if (fd < 0)
        throw std::runtime_error("the job has ended");
}

JobConnection::~JobConnection() { close(fd); }

void tellJob(JobConnection& job, const std::string& request) { ask(job, request); }

std::vector<JobReport> runningJobs()
{
    std::vector<JobReport> jobs;
    for (const std::string& path : filesOfOthers(fileName))
        try {
            jobs.push_back(reportOf(path));
        } catch (const std::runtime_error&) { // it has just ended, or is stopped
        }
    std::ranges::sort(jobs, [](const JobReport& a, const JobReport& b) {
        return std::pair(a.since, a.pid) < std::pair(b.since, b.pid);
    });
    return jobs;
}

JobReport runningJob(const std::string& name)
{
    const std::vector<JobReport> jobs = runningJobs();
    if (name.empty() && jobs.size() == 1)
        return jobs.front();
    std::string names;
    for (const JobReport& job : jobs) {
        if (job.name == name)
            return job;
        names += (names.empty() ? "" : ", ") + job.name;
    }
    if (jobs.empty())
        throw std::runtime_error("nothing of yours runs on a wall here");
    throw std::runtime_error((name.empty() ? "name one of the jobs that run: "
                                           : "no job is called \"" + name + "\"; there are ") +
                             names);
}
