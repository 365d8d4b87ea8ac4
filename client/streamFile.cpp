#include "client/streamFile.h"
#include "client/wholeFile.h"
#include "wire/values.h"

#include <zlib.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace {

struct Close {
    void operator()(gzFile file) const { gzclose(file); }
};

[[noreturn]] void fail(const std::string& name, const std::string& what)
{
    throw std::runtime_error(name + ": " + what);
}

[[noreturn]] void damaged(const std::string& name, std::size_t offset, const std::string& what)
{
    fail(name, "at byte " + std::to_string(offset) + ": " + what);
}

std::vector<unsigned char> readAll(const std::string& name)
{
    errno = 0;
    const std::unique_ptr<gzFile_s, Close> file{gzopen(name.c_str(), "rb")};
    if (!file)
        fail(name, errno ? std::strerror(errno) : "cannot be opened");
    std::vector<unsigned char> bytes;
    constexpr unsigned chunk = 1 << 20;
    for (;;) {
        const std::size_t used = bytes.size();
        bytes.resize(used + chunk);
        const int got = gzread(file.get(), bytes.data() + used, chunk);
        if (got < 0) {
            int code = 0;
            const char* text = gzerror(file.get(), &code);
            damaged(name, used, code == Z_ERRNO ? std::strerror(errno) : text);
        }
        bytes.resize(used + static_cast<std::size_t>(got));
        if (got == 0)
            return bytes;
    }
}

} // namespace

StreamFile readStreamFile(const std::string& name)
{
    StreamFile file{.name = name, .bytes = readAll(name), .handshake = {}, .buffers = {}};
    const std::vector<unsigned char>& bytes = file.bytes;
    std::size_t at = 0;
    const auto need = [&](std::size_t count, const char* what) {
        if (bytes.size() - at < count)
            damaged(name, at,
                    std::string("the file ends within ") + what + ": " + std::to_string(count) +
                        " bytes are due, " + std::to_string(bytes.size() - at) + " are there");
    };
    need(sizeof file.handshake, "the handshake");
    file.handshake = load<_handshake>(bytes.data());
    // Three small codes begin every stream, whatever they say.
    const auto [version, addrmode, endian] = file.handshake;
    for (const std::int32_t code : {version, addrmode, endian})
        if (code < 0 || code > 255)
            damaged(name, 0, "this is not a stream file: it does not begin with a handshake");
    at += sizeof file.handshake;
    for (;;) {
        need(sizeof(_hdr), "a buffer header, without an end of the stream");
        const auto hdr = load<_hdr>(bytes.data() + at);
        at += sizeof hdr;
        if (hdr.size < 0)
            break;
        need(static_cast<std::size_t>(hdr.size), "a command buffer");
        file.buffers.push_back({at, hdr});
        at += static_cast<std::size_t>(hdr.size);
    }
    if (at != bytes.size())
        damaged(name, at,
                std::to_string(bytes.size() - at) + " bytes follow the end of the stream");
    return file;
}

void writeStreamFile(const std::string& name, const std::vector<OutgoingBuffer>& buffers)
{
    WholeFile file = beginFile(name);
    const auto write = [&file](const void* data, std::size_t bytes) {
        std::fwrite(data, 1, bytes, file.stream);
    };
    write(&ownHandshake, sizeof ownHandshake);
    for (const OutgoingBuffer& buffer : buffers) {
        const _hdr hdr{static_cast<std::int32_t>(buffer.bytes.size()), buffer.sync};
        write(&hdr, sizeof hdr);
        write(buffer.bytes.data(), buffer.bytes.size());
    }
    write(&endOfStream, sizeof endOfStream);
    finishFile(file);
}
