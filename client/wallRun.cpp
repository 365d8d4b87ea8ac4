#include "client/wallRun.h"
#include "client/locations.h"

#include <X11/Xlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>

#include <dlfcn.h>
#include <unistd.h>

namespace {

constexpr Timeout probeTime = std::chrono::seconds(60);
constexpr char answerMark[] =
    "mosa-wall-probe"; // begins an answer: mark, server, node, what is wrong

std::string ownHost()
{
    char name[256] = "";
    gethostname(name, sizeof name - 1);
    return name;
}

std::string openGLOf(const char* fromEnvironment)
{
    return fromEnvironment ? fromEnvironment : findSystemOpenGL();
}

// What keeps a server from showing anything; empty when nothing does.
std::string faultOfServer(const Wall& wall, std::size_t server)
{
    if (server >= wall.tiles.size())
        return "the wall file has too few entries on this node";
    const WallEntry& entry = wall.tiles[server].entry;
    const char* library = std::getenv("SYSTEM_OPENGL_LIB");
    if (!library || !dlopen(library, RTLD_LAZY))
        return std::string("the OpenGL library ") + (library ? library : "") +
               " cannot be loaded: " + (library ? dlerror() : "none is named");
    Display* dpy = XOpenDisplay(entry.dpyName.c_str());
    if (!dpy)
        return "the display " + entry.dpyName + " cannot be opened";
    std::string fault;
    int opcode = 0;
    int event = 0;
    int error = 0;
    if (entry.scrn >= ScreenCount(dpy))
        fault = "the display " + entry.dpyName + " has no such screen";
    else if (!XQueryExtension(dpy, "GLX", &opcode, &event, &error))
        fault = "the display " + entry.dpyName + " has no GLX";
    XCloseDisplay(dpy);
    return fault;
}

} // namespace

Job wallJob(const Wall& wall, const std::vector<Host>& hosts,
            const std::vector<std::string>& clientArguments)
{
    Job job;
    job.client = {playProgram()};
    job.client.insert(job.client.end(), clientArguments.begin(), clientArguments.end());
    job.server = {serverProgram()};
    job.servers = static_cast<int>(wall.tiles.size());
    job.environment = {"MOSA_DISPLAY=" + std::filesystem::absolute(wall.file).string(),
                       "SYSTEM_OPENGL_LIB=" + openGLOf(std::getenv("SYSTEM_OPENGL_LIB"))};
    if (!hosts.empty()) {
        placeServers(hosts, job.servers); // are there enough?
        std::string list = ownHost() + ":1";
        for (const Host& host : hosts)
            list += "," + host.name + ":" + std::to_string(host.servers);
        job.options = {"-hosts", list};
    }
    return job;
}

std::vector<std::string> probeWall(const Wall& wall, const Job& job,
                                   const std::vector<Place>& places)
{
    Job probe = job;
    probe.client = {"true"}; // keeps the client's place
    probe.server = {ownProgram(), "probe", std::filesystem::absolute(wall.file)};
    probe.output = Output::capture;
    const Ending ending = runJob(probe, probeTime);

    std::map<int, std::string> answers;
    std::istringstream out(ending.out);
    for (std::string line; std::getline(out, line);) {
        std::istringstream words(line);
        std::string mark;
        std::string node;
        int server = 0;
        if (!(words >> mark >> server >> node) || mark != answerMark)
            continue;
        std::string fault;
        std::getline(words >> std::ws, fault);
        answers[server] = fault.empty() ? "" : " on " + node + ": " + fault;
    }
    std::vector<std::string> faults;
    for (int server = 0; server < job.servers; ++server) {
        const auto answer = answers.find(server);
        const std::string& host = places.at(static_cast<std::size_t>(server)).host;
        if (answer == answers.end())
            faults.push_back("server " + std::to_string(server) + ": its node" +
                             (host.empty() ? "" : ", " + host + ",") + " does not answer");
        else if (!answer->second.empty())
            faults.push_back("server " + std::to_string(server) + answer->second);
    }
    if (ending.status != 0 || ending.timedOut) // the launcher's own words say why
        faults.push_back(ending.err.empty() ? "mpiexec failed" : ending.err);
    return faults;
}

int probeNode(const std::string& wallFile)
{
    const char* rank = std::getenv("PMI_RANK");
    const int server = (rank ? std::atoi(rank) : 0) - 1;
    std::string fault;
    try {
        fault = faultOfServer(readWall(wallFile), static_cast<std::size_t>(server));
    } catch (const std::exception& trouble) {
        fault = std::string("the wall file cannot be read: ") + trouble.what();
    }
    std::printf("%s %d %s %s\n", answerMark, server, ownHost().c_str(), fault.c_str());
    return 0;
}
