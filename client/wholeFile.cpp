#include "client/wholeFile.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const std::string& name, int error)
{
    throw std::runtime_error(name + ": " + std::strerror(error));
}

// Whoever writes a file holds a lock on it: one that can be locked is a dead one's, whose number
// this process may have by now.
bool isForgotten(const std::filesystem::path& part)
{
    const int fd = open(part.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    struct stat status {};
    const bool free = fd >= 0 && fstat(fd, &status) == 0 && S_ISREG(status.st_mode) &&
                      flock(fd, LOCK_EX | LOCK_NB) == 0;
    if (fd >= 0)
        close(fd);
    return free;
}

constexpr char ending[] = ".part";

// Removes what processes that were killed have left beside a file.
void removeForgotten(const std::string& name)
{
    const std::filesystem::path whole(name);
    const std::string beginning = whole.filename().string() + ".";
    std::error_code unreadable;
    for (const auto& entry : std::filesystem::directory_iterator(
             whole.has_parent_path() ? whole.parent_path() : ".", unreadable)) {
        const std::string file = entry.path().filename();
        if (!file.starts_with(beginning) || !file.ends_with(ending) ||
            file.size() <= beginning.size() + std::strlen(ending))
            continue;
        const std::string number =
            file.substr(beginning.size(), file.size() - beginning.size() - std::strlen(ending));
        if (number.find_first_not_of("0123456789") == number.npos && isForgotten(entry.path()))
            unlink(entry.path().c_str());
    }
}

// As it would be with nothing in its place, or with the permissions of what is there. -1 when it
// cannot be opened.
int openBeside(const std::string& beside, const struct stat* before)
{
    for (;;) {
        const int fd = open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        struct stat status {};
        if (fd < 0 && errno == EEXIST && unlink(beside.c_str()) == 0) // of one of this number
            continue;
        if (fd < 0)
            return fd;
        flock(fd, LOCK_EX | LOCK_NB);                          // not every file system has locks
        if (fstat(fd, &status) == 0 && status.st_nlink == 0) { // taken for a dead one's until then
            close(fd);
            continue;
        }
        if (before)
            fchmod(fd, before->st_mode & 07777);
        return fd;
    }
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
        removeForgotten(file.name);
        file.beside = file.name + "." + std::to_string(getpid()) + ending;
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
