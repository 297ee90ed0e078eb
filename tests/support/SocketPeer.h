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

// Accepts one peer; -1 on failure.
int acceptOne(int listeningFd);

// Writes all the bytes; false on failure. Never raises SIGPIPE.
bool writeText(int fd, const std::string &text);

// Reads until `length` bytes have come or the peer closes.
std::string readText(int fd, size_t length);

}  // namespace ymtest
