// Connections of the overload libraries: they never block, and carry records of one size each way.
#pragma once

#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <cerrno>
#include <sys/socket.h>

namespace net {

/// Sockets that listen at a port, 0 for any that is free, of this machine's addresses by this name:
/// numbers, or names as others resolve them. Where this machine takes its own name for an address
/// that others do not reach (127.0.1.1), they listen at all. Throws std::system_error.
std::vector<int> listenOn(const std::string& host, int port);

/// True when one of a name's addresses is this machine's own loopback. May take its time.
bool isLoopback(const std::string& host);

/// The port at which a socket listens.
int portOf(int fd);

struct Address {
    sockaddr_storage bytes{};
    socklen_t size = 0;
};

/// Looks HOST:PORT up, also [HOST]:PORT, which may take its time. False when there is no such host.
bool resolve(const std::string& text, Address& address);

/// Begins a connection, without waiting; -1 when it cannot be begun.
int beginConnection(const Address& address);

/// True once a connection that was begun has come about; `failed` when it never will.
bool isConnected(int fd, bool& failed);

/// Connects to HOST:PORT, within so many milliseconds; -1 when that fails.
int connectWithin(const char* name, int milliseconds);

/// True when the bytes, filled up with zeros, are the secret. Time tells nothing of it.
bool isSecret(std::span<const char> said, std::string_view secret);

/// Small records are sent without delay.
void sendAtOnce(int fd);

/// The address at the other end.
std::string peerOf(int fd);

template <class Record>
struct Incoming {
    char bytes[sizeof(Record)];
    std::size_t count = 0; // of them that have come
};

enum class Heard { nothing, record, end };

/// Takes a record that has come whole.
template <class Record>
Heard receiveRecord(int fd, Incoming<Record>& incoming, Record& record)
{
    const ssize_t n = recv(fd, incoming.bytes + incoming.count, sizeof(Record) - incoming.count, 0);
    if (n < 0)
        return errno == EAGAIN || errno == EINTR ? Heard::nothing : Heard::end;
    if (n == 0)
        return Heard::end;
    incoming.count += static_cast<std::size_t>(n);
    if (incoming.count < sizeof(Record))
        return Heard::nothing;
    incoming.count = 0;
    std::memcpy(&record, incoming.bytes, sizeof record);
    return Heard::record;
}

/// False when the connection does not take it: the other side is gone, or has not read for long.
template <class Record>
bool sendRecord(int fd, const Record& record)
{
    return send(fd, &record, sizeof record, MSG_NOSIGNAL) == ssize_t{sizeof record};
}

} // namespace net
