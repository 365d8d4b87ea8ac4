// Where the system's own programs and examples are: beside the running program, built or installed.
#pragma once

#include <string>
#include <vector>

/// The running program, the server and play. Throw std::runtime_error when they are not there.
std::string ownProgram();
std::string serverProgram();
std::string playProgram();

/// The streams of the scenes that come with the system, sorted; none when they are not installed.
std::vector<std::string> exampleStreams();

/// A stream's name, without folder and ending.
std::string sceneName(const std::string& file);

/// The file of that name, else the scene's. What is neither is returned as it is.
std::string findStream(const std::string& wanted);

/// A folder of libraries, known by a file in it: beside the running program, or where it is
/// installed. Throws std::runtime_error when it is not there.
std::string libraryFolder(const std::string& name, const std::string& file);
