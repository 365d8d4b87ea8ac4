#include "tools/xAuthority.h"
#include "client/wholeFile.h"
#include "tools/process.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <sys/random.h>
#include <unistd.h>

namespace {

std::string counted(const std::string& bytes)
{
    const std::size_t size = bytes.size();
    return std::string{static_cast<char>(size >> 8), static_cast<char>(size)} + bytes;
}

// An entry for the display of this number, or of any when it is empty.
std::string entryOf(const std::string& cookie, const std::string& number)
{
    char host[256] = "";
    gethostname(host, sizeof host - 1);
    const std::string local{'\1', '\0'}; // the family of this machine's own displays, 256
    return local + counted(host) + counted(number) + counted("MIT-MAGIC-COOKIE-1") +
           counted(cookie);
}

std::string contentOf(const std::string& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// What the user's own displays need.
std::string usersEntries()
{
    const char* const named = std::getenv("XAUTHORITY");
    const char* const home = std::getenv("HOME");
    return contentOf(named && *named ? named : home ? std::string(home) + "/.Xauthority" : "");
}

} // namespace

DisplayCookie newCookie()
{
    DisplayCookie cookie{std::string(16, '\0'), {}};
    if (getrandom(cookie.bytes.data(), cookie.bytes.size(), 0) !=
        static_cast<ssize_t>(cookie.bytes.size()))
        throw std::runtime_error(std::string("no random numbers: ") + std::strerror(errno));
    cookie.file = temporaryFile(entryOf(cookie.bytes, ""));
    return cookie;
}

void useCookie(const DisplayCookie& cookie, const std::string& display)
{
    static const std::string users = usersEntries();
    static const std::string file = temporaryFile("");
    static std::string own;
    own = entryOf(cookie.bytes, display.substr(display.find(':') + 1)) + own;
    writeWholeFile(file, own + users);
    setenv("XAUTHORITY", file.c_str(), 1);
}
