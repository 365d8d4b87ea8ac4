#include "client/locations.h"

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

// Installed programs have longer names, since others have the short ones.
std::string besideOwn(std::initializer_list<const char*> names)
{
    const fs::path folder = fs::path(ownProgram()).parent_path();
    for (const char* name : names)
        if (fs::is_regular_file(folder / name))
            return folder / name;
    throw std::runtime_error(std::string(*names.begin()) + " is not there beside " + ownProgram());
}

// The stream files of a folder, if there is one.
std::vector<std::string> streamsIn(const fs::path& folder)
{
    std::error_code none;
    std::vector<std::string> streams;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, none))
        if (const std::string file = entry.path();
            file.ends_with(".mws") || file.ends_with(".mws.gz"))
            streams.push_back(file);
    std::ranges::sort(streams);
    return streams;
}

} // namespace

std::string ownProgram() { return fs::read_symlink("/proc/self/exe"); }

std::string serverProgram() { return besideOwn({"mosa-server", "server"}); }

std::string playProgram() { return besideOwn({"mosa-play", "play"}); }

std::vector<std::string> exampleStreams()
{
    const fs::path prefix = fs::path(ownProgram()).parent_path().parent_path();
    for (const fs::path& folder :
         {prefix / "share/mosa/examples", prefix / "examples", fs::current_path() / "examples"})
        if (const std::vector<std::string> streams = streamsIn(folder); !streams.empty())
            return streams;
    return {};
}

std::string sceneName(const std::string& file)
{
    const std::string name = fs::path(file).filename();
    return name.substr(0, name.rfind(".mws"));
}

std::string findStream(const std::string& wanted)
{
    if (fs::exists(wanted))
        return wanted;
    for (const std::string& stream : exampleStreams())
        if (sceneName(stream) == wanted)
            return stream;
    return wanted;
}

std::string libraryFolder(const std::string& name, const std::string& file)
{
    const fs::path own = fs::path(ownProgram()).parent_path();
    for (const fs::path& folder : {own / name, own.parent_path() / "lib/mosa" / name})
        if (fs::exists(folder / file))
            return folder;
    throw std::runtime_error(file + " is not there beside " + ownProgram());
}
