// Servers that show the pointer: what each of them is told, and when. One thread.
#pragma once

#include "overload/socket.h"
#include "wire/pointerMessages.h"

#include <chrono>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include <poll.h>

/// One of them. It has at most one place to answer: of later ones the last is told then.
struct PointerServer {
    int fd = -1;
    net::Incoming<PointerHello> hello = {};
    net::Incoming<PointerAnswer> incoming = {};
    bool isGreeted = false; // it has said who it is
    PointerArea tile = {};
    std::string unsent = {}; // of what it was told
    bool knowsShape = false;
    bool showsIt = false;   // as it was told last
    PointerPlace told = {}; // that is
    std::uint32_t answered = 0;
    std::chrono::steady_clock::time_point toldAt = {};
};

struct PointerServers {
    std::vector<int> listening;
    std::string secret;
    std::chrono::milliseconds patience{100}; // with an answer
    std::list<PointerServer> all;
    PointerPlace place = {}; // as it is
    PointerShape shape = {};
    std::string shapeMessage = {};
};

/// What is to be looked at by poll(2).
void addDescriptors(const PointerServers& servers, std::vector<pollfd>& events);

/// Another shape.
void setShape(PointerServers& servers, const PointerShape& shape,
              const std::vector<std::uint32_t>& pixels);

/// Takes in what servers have said, and tells them what they do not know yet. Only those that show
/// the pointer, or did, are told of a place; one that it comes to not before those that it has left
/// have said that they show it no more, so that it is nowhere seen twice. One that does not answer
/// is waited for only a while.
void tellServers(PointerServers& servers);

void closeServers(PointerServers& servers);
