// Plain Unix-domain sockets for the tests: a peer that is not the SDK.
#pragma once

#include <string>

namespace ymtest {

// Whether a socket file is at the path.
bool isSocketFile(const std::string &path);

// Connects to the path; -1 on failure.
int connectTo(const std::string &path);

// Listens on the path (removing a stale file first) with the given backlog; -1 on failure.
int listenOn(const std::string &path, int backlog = 16);

// Binds a socket to the path (removing a stale file first) that does not listen yet: connecting
// to it is refused until listen() is called on it. -1 on failure.
int bindOn(const std::string &path);

// Accepts one peer, waiting at most 20 seconds for one; -1 on failure or when none came.
int acceptOne(int listeningFd);

// Writes all the bytes; false on failure. Never raises SIGPIPE.
bool writeText(int fd, const std::string &text);

// Reads until `length` bytes have come or the peer closes.
std::string readText(int fd, size_t length);

}  // namespace ymtest
