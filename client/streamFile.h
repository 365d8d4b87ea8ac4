// Stream files: the wire itself. The 12-byte handshake, then for every command buffer its 8-byte
// header and its bytes, then a header with a negative size. Files may be gzip-compressed.
#pragma once

#include "wire/framing.h"

#include <cstddef>
#include <string>
#include <vector>

/// A command buffer in the bytes of its file.
struct StreamBuffer {
    std::size_t offset; // of its first byte, behind the header
    _hdr hdr;
};

/// A file as it was read, and where its buffers are.
struct StreamFile {
    std::string name;
    std::vector<unsigned char> bytes; // uncompressed
    _handshake handshake;
    std::vector<StreamBuffer> buffers;
};

/// Reads a file and checks its structure. Throws std::runtime_error with the file's name and the
/// (uncompressed) byte offset of the fault.
StreamFile readStreamFile(const std::string& name);

/// Writes command buffers as a stream file, each with the given sync. Throws std::runtime_error.
struct OutgoingBuffer {
    std::vector<unsigned char> bytes;
    int sync;
};
void writeStreamFile(const std::string& name, const std::vector<OutgoingBuffer>& buffers);
