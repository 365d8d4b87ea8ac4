#include "tools/wallRun.h"
#include "client/locations.h"
#include "tools/nodeProbe.h"
#include "tools/wallDrawing.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <sstream>
#include <stdexcept>

#include <unistd.h>

namespace {

std::string openGLOf(const char* fromEnvironment)
{
    return fromEnvironment ? fromEnvironment : findSystemOpenGL();
}

// The names by which the machines of a job know each other, or a point when there is only one.
std::string namesOf(const Job& job)
{
    if (job.hosts.empty())
        return ".";
    std::string names = ownHostName();
    for (const std::string& host : job.hosts)
        names += "," + host;
    return names;
}

// Runs the job that asks the nodes, until it ends or one of them cannot be reached.
Ending askNodes(const Job& job)
{
    constexpr Timeout step = std::chrono::milliseconds(100);
    constexpr Timeout others = std::chrono::seconds(2); // those that can be reached answer by then
    Process process = startJob(job);
    closeInput(process);
    for (Timeout spent{}; spent < probeTime && !waitForEnd(process, step); spent += step)
        if (launcherFailed(process.pid)) {
            waitForEnd(process, others);
            break;
        }
    return waitForEnd(process, Timeout{}) ? finishProcess(process, step) : stopProcess(process);
}

// The task that a line of output begins with, when tasks are labelled: "[2] text"; the line is then
// what follows. -1 when it is mpiexec's own.
int takeTask(std::string& line)
{
    int task = -1;
    int length = 0;
    if (std::sscanf(line.c_str(), "[%d] %n", &task, &length) != 1 || length == 0)
        return -1;
    line.erase(0, static_cast<std::size_t>(length));
    return task;
}

std::string inLowerCase(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// Takes out of what was said why a server's node is silent: its own words, else mpiexec's or ssh's.
// Empty when nobody says why.
std::string takeReason(std::string& words, int task, const std::string& host)
{
    std::istringstream lines(words);
    std::string reason, rest;
    for (std::string line; std::getline(lines, line);) {
        std::string text = line;
        const std::size_t program = line.find("execvp error on file ");
        if (program != line.npos && line.find("@" + host + "]") != line.npos)
            reason = line.substr(line.find("file ", program) + 5);
        else if (takeTask(text) == task)
            reason = text;
        else if (reason.empty() && !host.empty() && !isRemark(line) &&
                 inLowerCase(line).find(inLowerCase(host)) != line.npos)
            reason = line;
        else
            rest += line + "\n";
    }
    words = rest;
    while (!reason.empty() && std::isspace(static_cast<unsigned char>(reason.back())))
        reason.pop_back();
    return reason;
}

bool hasFault(const std::vector<Finding>& findings)
{
    return std::ranges::any_of(findings, &Finding::fault);
}

std::string withoutRemarks(const std::string& text)
{
    std::istringstream lines(text);
    std::string kept;
    for (std::string line; std::getline(lines, line);)
        if (!isRemark(line))
            kept += (kept.empty() ? "" : "\n") + line;
    return kept;
}

} // namespace

LastFrame lastFrameOn(const Wall& wall, const std::vector<Place>& places,
                      const PlayOptions& options, const std::string& picture)
{
    LastFrame last{.picture = {}, .then = options.then, .hold = options.hold};
    if (!picture.empty())
        last.picture = [=] { writePng(picture, snapshotWall(wall, places)); };
    return last;
}

Job playJob(const std::vector<std::string>& files, const PlayOptions& options,
            const LastFrame& last)
{
    Job job;
    job.clientTells = true;
    job.inputPipe = last.picture || !last.then.empty() || last.hold > 0;
    job.client = {playProgram()};
    for (const auto& more : {files, playArguments(options, job.inputPipe)})
        job.client.insert(job.client.end(), more.begin(), more.end());
    job.server = {serverProgram()};
    return job;
}

Job liveJob(const PlayOptions& options)
{
    Job job;
    job.clientTells = true;
    job.client = {playProgram()};
    if (options.loose)
        job.client.emplace_back("--loose");
    job.server = {serverProgram()};
    return job;
}

bool loadOverloads(Job& job, bool plain)
{
    const char* own = std::getenv("MOSA_OVERLOAD_FILE");
    if (own && *own)
        return false;
    const char* const list = plain ? "plain.list" : "exact.list";
    job.environment.push_back("MOSA_OVERLOAD_FILE=" + libraryFolder("overload", list) + "/" + list);
    return true;
}

void putOnWall(Job& job, const Wall& wall, const std::vector<Host>& hosts)
{
    job.servers = static_cast<int>(wall.tiles.size());
    job.environment = {"MOSA_DISPLAY=" + std::filesystem::absolute(wall.file).string(),
                       "SYSTEM_OPENGL_LIB=" + openGLOf(std::getenv("SYSTEM_OPENGL_LIB"))};
    if (!hosts.empty()) {
        for (const Place& place : placeServers(hosts, job.servers))
            job.hosts.push_back(place.host);
        std::string list = ownHostName() + ":1";
        for (const Host& host : hosts)
            list += "," + host.name + ":" + std::to_string(host.servers);
        job.options = {"-hosts", list};
        // Large messages at once, not when the other side asks for them: the line to the servers
        // would rest while they exchange what they have.
        if (!std::getenv("UCX_RNDV_THRESH"))
            job.environment.emplace_back("UCX_RNDV_THRESH=inf");
    }
}

StreamFile requireStream(const std::string& file)
{
    if (!std::filesystem::exists(file))
        throw std::runtime_error(file + ": no such file, and no scene of that name (a program "
                                        "stands behind --); mosa-wall demo "
                                        "--list names the scenes");
    return readStreamFile(file);
}

void requireWritable(const std::string& file)
{
    const std::string folder = std::filesystem::absolute(file).parent_path();
    if (access(folder.c_str(), W_OK) != 0)
        throw std::runtime_error(file + ": its folder: " + std::strerror(errno));
    if (std::filesystem::is_directory(file))
        throw std::runtime_error(file + " is a folder");
}

WallAnswers probeWall(const Wall& wall, const Job& job, const std::vector<Place>& places)
{
    Job probe = job;
    // Keeps the client's place, until mpiexec has handed it the end of its input: one that has gone
    // by then is mpiexec's own end (SIGPIPE).
    probe.client = {"cat"};
    probe.label = true;
    const std::string file = std::filesystem::absolute(wall.file);
    probe.server = {ownProgram(), "probe", file, sumOf(file), sumOf(serverProgram()), namesOf(job)};
    probe.output = Output::capture;
    probe.inputPipe = true;
    if (!job.options.empty())
        std::fputs("mosa-wall: asking the nodes ...\n", stderr);
    const Ending ending = askNodes(probe);

    std::map<std::size_t, NodeAnswer> answers;
    int samples = INT_MAX;
    int hubPort = 0;
    std::istringstream out(ending.out);
    for (std::string line; std::getline(out, line);) {
        takeTask(line);
        std::istringstream words(line);
        std::string mark;
        std::size_t server = 0;
        NodeAnswer answer;
        int ofServer = 0;
        int port = 0;
        if (words >> mark >> server >> answer.finding.fault >> ofServer >> port >>
                answer.screen.w >> answer.screen.h >> answer.up >> answer.bytes &&
            mark == answerMark && server < wall.tiles.size()) {
            samples = std::min(samples, ofServer);
            if (server == 0)
                hubPort = port;
            std::getline(words >> std::ws, answer.finding.text);
            answers[server] = answer;
        }
    }
    judgeOrder(wall, places, answers);
    std::vector<Finding> findings;
    std::string said = ending.err;
    bool isExplained = true;
    for (std::size_t server = 0; server < wall.tiles.size(); ++server) {
        const auto answer = answers.find(server);
        const bool silent = answer == answers.end();
        if (!silent && answer->second.finding.text.empty())
            continue;
        const int line = wall.tiles[server].line;
        const std::string& host = places.at(server).host;
        std::string text = silent ? takeReason(said, static_cast<int>(server) + 1, host)
                                  : answer->second.finding.text;
        if (text.empty()) {
            text = "its node does not answer";
            isExplained = false;
        }
        findings.push_back({line, silent || answer->second.finding.fault,
                            "server " + std::to_string(server) + " (line " + std::to_string(line) +
                                ")" + (host.empty() ? "" : " on " + host) + ": " + text});
    }
    if (ending.status != 0) { // the launcher's own words say why
        const std::string words = withoutRemarks(said);
        if (findings.empty() || !isExplained || (!words.empty() && !hasFault(findings)))
            findings.push_back({0, true,
                                words.empty()
                                    ? "mpiexec failed, status " + std::to_string(ending.status) +
                                          (ending.err.empty() ? "" : ": " + ending.err)
                                    : words});
    }
    return {findings, answers.size() == wall.tiles.size() ? samples : 0, hubPort, answers};
}
