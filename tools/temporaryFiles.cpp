// Temporary files: in a folder of this process, in the user's runtime folder where there is one.
#include "tools/cleanUp.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr char beginning[] = "mosa-", sign[] = "of-mosa-wall";

[[noreturn]] void fail(const std::string& what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

// True for a folder that is this user's and that nobody else can write to.
bool isOwn(const struct stat& status)
{
    return S_ISDIR(status.st_mode) && status.st_uid == geteuid() && (status.st_mode & 077) == 0;
}

// Where folders may be: with and without a session the same user's differ. The first is for new
// ones.
std::vector<fs::path> baseFolders()
{
    const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
    struct stat status {};
    std::vector<fs::path> bases;
    if (runtime && *runtime == '/' && stat(runtime, &status) == 0 && isOwn(status))
        bases.emplace_back(runtime);
    bases.push_back(fs::temp_directory_path());
    return bases;
}

// This user's folders below it. Each process holds a lock on its folder for as long as it lives:
// one that is marked as such a folder and not locked is nobody's, and is removed. Others are left
// alone.
std::vector<fs::path> foldersInUse(const fs::path& base)
{
    std::vector<fs::path> folders;
    std::error_code unreadable;
    for (const fs::directory_entry& entry : fs::directory_iterator(base, unreadable)) {
        const fs::path& path = entry.path();
        if (!path.filename().string().starts_with(beginning))
            continue;
        const int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        struct stat status {};
        std::error_code kept;
        const bool is = fd >= 0 && fstat(fd, &status) == 0 && isOwn(status) &&
                        fs::exists(path / sign, kept);
        if (is && flock(fd, LOCK_EX | LOCK_NB) == 0)
            fs::remove_all(path, kept);
        else if (is)
            folders.push_back(path);
        if (fd >= 0)
            close(fd);
    }
    return folders;
}

// A folder, locked and then marked.
std::string makeFolder(const fs::path& base)
{
    std::string name = base / (std::string(beginning) + "XXXXXX");
    if (!mkdtemp(name.data()))
        fail(name);
    const int fd = open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); // stays open
    if (fd < 0 || flock(fd, LOCK_EX) != 0)
        fail(name);
    const int mark = openat(fd, sign, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (mark < 0)
        fail(name);
    close(mark);
    return name;
}

const std::string& ownFolder()
{
    static std::string folder;
    static pid_t maker;
    if (maker != getpid()) {
        installCleanUp();
        const fs::path base = baseFolders().front();
        foldersInUse(base);
        folder = makeFolder(base);
        maker = getpid();
        if (!listFile(folder) || !listFile(folder + "/" + sign))
            throw std::runtime_error(folder + ": the name is too long");
    }
    return folder;
}

} // namespace

std::vector<std::string> filesOfOthers(const std::string& name)
{
    std::vector<std::string> files;
    for (const fs::path& base : baseFolders())
        for (const fs::path& folder : foldersInUse(base)) {
            std::error_code unreadable;
            for (const fs::directory_entry& entry : fs::directory_iterator(folder, unreadable))
                if (entry.path().filename().string().starts_with(name + "-"))
                    files.push_back(entry.path());
        }
    return files;
}

std::string temporaryName(const std::string& name)
{
    static int count;
    const std::string path = ownFolder() + "/" + name + "-" + std::to_string(++count);
    if (!listFile(path))
        throw std::runtime_error(path + ": too many temporary files, or the name is too long");
    return path;
}

std::string temporaryFile(const std::string& content)
{
    const std::string name = temporaryName("file");
    const int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0)
        fail(name);
    const ssize_t written = write(fd, content.data(), content.size());
    close(fd);
    if (written != static_cast<ssize_t>(content.size()))
        fail(name);
    return name;
}
