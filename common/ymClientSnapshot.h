// The meeting client as one command sees it: where it is installed (with the log lines of the search
// that found it, which every look-up of the command writes again), its executable and version,
// and whether it runs. Taken once and read by every check of a command; kept by ymClientWatch for
// as long as nothing it depends on changes.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "foundation/ymLog.h"

struct ymClientSnapshot {
    // What it was taken for: $HOME and the exported names the search reads (nothing for a null one).
    std::array<std::optional<std::string>, 5> takenFor;
    std::string identifier;    // the meeting client's bundle identifier
    std::string installPath;   // the search's answer: never empty
    std::vector<ymlog::PreparedLine> lookupLines;  // what the search logs
    bool installed = false;    // a file package is at the install path
    std::optional<std::string> executablePath;
    std::string version;       // CFBundleVersion; "" when it cannot be read
    int32_t versionMajor = 0;  // its first two components, read as intValue reads them
    int32_t versionMinor = 0;
    bool running = false;      // a process of this user runs a bundle with the identifier
    std::vector<pid_t> processes;
    std::vector<std::string> folders;  // whose changes may change any of the above
    std::string executableFolder;      // the install path's Contents/MacOS: an exec there starts the client

    // A line the layers above prepare from the snapshot once and write on every command.
    template <typename Prepare>
    const ymlog::PreparedLine &laterLine(size_t slot, Prepare prepare) const
    {
        std::call_once(_later[slot].once, [&] { _later[slot].line = prepare(); });
        return _later[slot].line;
    }

private:
    struct LaterLine {
        std::once_flag once;
        ymlog::PreparedLine line;
    };
    mutable std::array<LaterLine, 4> _later;
};

// True when $HOME and the exported names the search reads are what they were when the snapshot
// was taken. Nothing is copied: a command asks this every time.
bool ymClientSnapshotIsForNow(const ymClientSnapshot &snapshot);

// Takes a snapshot: the install-path search, the bundle's executable and version, the process
// table. Writes no log line.
std::shared_ptr<ymClientSnapshot> ymTakeClientSnapshot();

// True when the client runs in both and no process of `before` is among those of `now`: it quit and
// started again between the two.
bool ymClientSnapshotRestarted(const ymClientSnapshot &now, const ymClientSnapshot &before);

// Writes the search's log lines, as a look-up of the install path does.
void ymWriteLookupLines(const ymClientSnapshot &snapshot);
