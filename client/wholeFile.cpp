#include "client/wholeFile.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const std::string& name, int error)
{
    throw std::runtime_error(name + ": " + std::strerror(error));
}

// As it would be with nothing in its place, or with the permissions of what is there.
int openBeside(const std::string& beside, const struct stat* before)
{
    constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
    int fd = open(beside.c_str(), flags, 0666);
    if (fd < 0 && errno == EEXIST &&
        unlink(beside.c_str()) == 0) // of one of this number, long gone
        fd = open(beside.c_str(), flags, 0666);
    if (fd >= 0 && before)
        fchmod(fd, before->st_mode & 07777);
    return fd;
}

} // namespace

WholeFile beginFile(const std::string& name)
{
    struct stat status {};
    const bool isThere = stat(name.c_str(), &status) == 0;
    WholeFile file{name, "", nullptr};
    int fd = -1;
    if (isThere && !S_ISREG(status.st_mode)) {
        fd = open(name.c_str(), O_WRONLY | O_CLOEXEC);
    } else {
        if (isThere) // a link stays one
            file.name = std::filesystem::canonical(name);
        file.beside = file.name + "." + std::to_string(getpid()) + ".part";
        fd = openBeside(file.beside, isThere ? &status : nullptr);
    }
    file.stream = fd < 0 ? nullptr : fdopen(fd, "wb");
    if (!file.stream)
        fail(name, errno);
    return file;
}

void finishFile(WholeFile& file)
{
    std::FILE* const stream = file.stream;
    file.stream = nullptr;
    const bool failed = std::ferror(stream) != 0;
    int error = std::fclose(stream) != 0 ? errno : failed ? EIO : 0;
    if (error == 0 &&
        (file.beside.empty() || std::rename(file.beside.c_str(), file.name.c_str()) == 0))
        return;
    error = error ? error : errno;
    abandonFile(file);
    fail(file.name, error);
}

void abandonFile(WholeFile& file)
{
    if (file.stream)
        std::fclose(file.stream);
    file.stream = nullptr;
    if (!file.beside.empty())
        unlink(file.beside.c_str());
}

void writeWholeFile(const std::string& name, std::string_view content)
{
    WholeFile file = beginFile(name);
    std::fwrite(content.data(), 1, content.size(), file.stream);
    finishFile(file);
}
