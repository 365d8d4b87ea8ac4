// Where the system's own programs and examples are: beside the running program, built or installed.
#pragma once

#include <string>
#include <vector>

/// The running program, the server and play. Throw std::runtime_error when they are not there.
std::string ownProgram();
std::string serverProgram();
std::string playProgram();

/// A scene that comes with the system.
struct Scene {
    std::string name;
    std::string file;          // its stream
    int width = 0, height = 0; // of the program's window
    std::string about;         // what it draws with
};

/// The scenes, by the table in the examples' README. Throws std::runtime_error when there is none.
std::vector<Scene> readScenes();

/// The scene of that name or file. What is neither is a file of the user's, of no known size.
Scene findScene(const std::string& wanted);
