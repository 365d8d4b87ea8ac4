#include "tools/mpiJob.h"

#include <cstdlib>
#include <stdexcept>

#include <dlfcn.h>
#include <link.h>

std::vector<std::string> jobLine(const Job& job)
{
    // Debian's mpiexec may be another MPI's; MPICH's own name comes first.
    std::string mpiexec = findProgram("mpiexec.mpich");
    if (mpiexec.empty())
        mpiexec = "mpiexec";
    std::vector<std::string> line{mpiexec};
    const auto append = [&line](const std::vector<std::string>& more) {
        line.insert(line.end(), more.begin(), more.end());
    };
    append(job.options);
    if (job.label)
        line.emplace_back("-prepend-rank");
    std::vector<std::string> environment = job.environment;
    // MPICH's look at the machine's topology would open X displays to find GPUs, and wait for those
    // that do not answer.
    environment.emplace_back("HWLOC_COMPONENTS=-gl");
    for (const std::string& variable : environment) {
        const std::size_t equals = variable.find('=');
        append({"-genv", variable.substr(0, equals), variable.substr(equals + 1)});
    }
    append({"-n", "1"});
    append(job.client);
    append({":", "-n", std::to_string(job.servers)});
    append(job.server);
    return line;
}

std::string shellLine(const std::vector<std::string>& argv)
{
    std::string line;
    for (const std::string& word : argv) {
        constexpr char plain[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                                 "_-+=:,./@%";
        if (!line.empty())
            line += ' ';
        if (!word.empty() && word.find_first_not_of(plain) == std::string::npos) {
            line += word;
            continue;
        }
        line += '\'';
        for (const char c : word)
            line += c == '\'' ? "'\\''" : std::string(1, c);
        line += '\'';
    }
    return line;
}

Process startJob(const Job& job)
{
    return startProcess({.argv = jobLine(job),
                         .environment = job.secrets, // mpiexec passes on what it has
                         .output = job.output,
                         .inputPipe = job.inputPipe,
                         .isLauncher = true});
}

Ending runJob(const Job& job, Timeout timeout)
{
    Process process = startJob(job);
    return finishProcess(process, timeout);
}

std::vector<std::string> virtualWallEnvironment(const std::string& wallFile)
{
    return {"MOSA_DISPLAY=" + wallFile, "MOSA_BANNER_TIME=0",
            "SYSTEM_OPENGL_LIB=" + findSystemOpenGL(), "LIBGL_ALWAYS_SOFTWARE=1"};
}

std::string findSystemOpenGL()
{
    void* library = dlopen("libGL.so.1", RTLD_LAZY | RTLD_LOCAL);
    link_map* map = nullptr;
    if (!library || dlinfo(library, RTLD_DI_LINKMAP, &map) != 0)
        throw std::runtime_error("libGL.so.1 is not to be found: install an OpenGL library");
    std::string path = map->l_name;
    dlclose(library);
    return path;
}
