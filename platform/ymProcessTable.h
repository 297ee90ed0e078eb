// The process table, read cheaply and never stale where it matters.
//
// Reading every process's executable link on every question costs a few hundred microseconds
// with a few hundred processes. Instead each process's executable is read once and kept by pid,
// and the kernel's last allocated pid (/proc/loadavg) tells when processes have been created
// since the last question: only those are read. On every question the processes kept as
// applications are read again (so a quit, or a pid reused after one, is seen at once), and so
// are processes seen for the first time less than two seconds ago (so an exec right after a fork
// is seen). The whole table is read again when the pid counter wraps, when very many processes
// were created, and at least every ten seconds.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace ymProcessTable {

struct Process {
    pid_t pid;
    std::string executable;
};

// The processes (not threads) of the calling user (their real uid is ours) whose executable lies
// in "<X.app>/Contents/MacOS/", as of now. Other users' processes are not applications here, as
// a session's workspace lists only its own user's.
std::vector<Process> applicationProcesses();

}  // namespace ymProcessTable
