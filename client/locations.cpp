#include "client/locations.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <sstream>
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

fs::path examplesFolder()
{
    const fs::path prefix = fs::path(ownProgram()).parent_path().parent_path();
    for (const fs::path& folder :
         {prefix / "share/mosa/examples", prefix / "examples", fs::current_path() / "examples"})
        if (fs::exists(folder / "README.md"))
            return folder;
    throw std::runtime_error("the examples are not there: name a stream file");
}

std::string trimmed(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(' ');
    return first == std::string::npos ? ""
                                      : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

} // namespace

std::string ownProgram() { return fs::read_symlink("/proc/self/exe"); }

std::string serverProgram() { return besideOwn({"mosa-server", "server"}); }

std::string playProgram() { return besideOwn({"mosa-play", "play"}); }

std::vector<Scene> readScenes()
{
    const fs::path folder = examplesFolder();
    std::ifstream readme(folder / "README.md");
    std::vector<Scene> scenes;
    // A row reads: | name | WxH | frames | records | bytes | uses |
    for (std::string line; std::getline(readme, line);) {
        std::istringstream row(line);
        std::vector<std::string> cells;
        for (std::string cell; std::getline(row, cell, '|');)
            cells.push_back(trimmed(cell));
        Scene scene;
        if (cells.size() < 7 ||
            std::sscanf(cells[2].c_str(), "%dx%d", &scene.width, &scene.height) != 2)
            continue;
        scene.name = cells[1];
        scene.about = cells[2] + ", frames: " + cells[3] + "; " + cells[6];
        scene.file = folder / (scene.name + ".mws");
        if (!fs::exists(scene.file))
            scene.file += ".gz";
        if (fs::exists(scene.file))
            scenes.push_back(scene);
    }
    return scenes;
}

Scene findScene(const std::string& wanted)
{
    const Scene file{.name = wanted, .file = wanted, .width = 0, .height = 0, .about = {}};
    const bool exists = fs::exists(wanted);
    std::vector<Scene> scenes;
    try {
        scenes = readScenes();
    } catch (const std::exception&) {
        return file; // the examples are not installed
    }
    std::error_code none;
    for (const Scene& scene : scenes)
        if (exists ? fs::equivalent(scene.file, wanted, none) : scene.name == wanted)
            return scene;
    return file;
}
