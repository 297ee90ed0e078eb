// Folders watched for changes, on a descriptor of their own: whoever asks learns whether anything
// changed in them since it last asked, at the cost of one read, and a loop may wait on the
// descriptor to hear of changes as they happen.
//
// A folder that does not exist is watched through its nearest ancestor that does, for the creation
// (or move-in) of the next component of its path only: whatever else happens in that ancestor (a
// busy home folder) is no change, and costs no wake-up. A watched folder that is removed or moved
// away is a change, and so is a lost event (the kernel's queue overflowed): the caller looks at
// everything again.
//
// inotify is scarce (a user has few instances, and a limited number of watches). A folder that
// cannot be watched with it is looked at with stat instead: its inode and times, or, for one that
// does not exist, which ancestor is the nearest that does. poll() compares them, and tries for
// inotify again each time; a caller with a loop calls it every second or two while complete()
// answers false.
//
// Not thread-safe: the owner serializes the calls.
#pragma once

#include <ctime>
#include <map>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

class ymFolderWatch {
public:
    ymFolderWatch();
    // Closes the descriptor. (Never run in the child of a fork: the owner abandons the parent's.)
    ~ymFolderWatch();

    // Watches these folders from now on, and no others; the files of `execFolder` (when not empty)
    // are watched for being opened too, which is how a program in it is seen to start. Answers
    // complete(): false when a folder could not be watched with inotify; it is then looked at with
    // stat, and changes to it show only in changed() and poll(), not on the descriptor.
    bool watchOnly(const std::vector<std::string> &folders, const std::string &execFolder);

    // True when anything changed in a watched folder since the last call (or since watchOnly()
    // for the folders looked at with stat); takes what is pending.
    bool changed();

    // True when inotify watches every folder: nothing is left to stat.
    bool complete() const { return _fd >= 0 && _unwatched.empty(); }

    // For a watch that is not complete(): tries for inotify again where it is missing, then
    // answers changed(), or true when inotify now watches a folder it did not (the caller looks
    // again, with watchOnly()).
    bool poll();

    // Readable while an inotify event is pending; -1 while there is no inotify instance. Once made,
    // the descriptor stays the same for the life of the object.
    int descriptor() const { return _fd; }

    ymFolderWatch(const ymFolderWatch &) = delete;
    ymFolderWatch &operator=(const ymFolderWatch &) = delete;

private:
    // What is watched in a folder that exists.
    struct Watch {
        bool whole = false;             // the folder is one of those asked for: every event counts
        bool exec = false;              // opening its files counts too
        std::set<std::string> names;    // otherwise: the next components that count
        int wd = -1;                    // -1 while inotify does not watch it
    };
    // What stat saw of a folder asked for, while inotify does not watch the folder standing for it.
    struct Look {
        std::string existing;           // the folder itself, or its nearest ancestor that exists
        dev_t dev = 0;
        ino_t ino = 0;
        struct timespec mtime = {0, 0}; // the times of the folder itself (zero for an ancestor)
        struct timespec ctime = {0, 0};
        bool recent = false;            // changed so lately that a change within the same tick of
                                        // the file system's clock would leave the times as they are
        bool operator==(const Look &other) const;
    };

    bool makeInstance();
    bool add(const std::string &folder, Watch &watch);
    static Look lookAt(const std::string &folder);
    bool eventsChanged();

    int _fd;
    std::map<std::string, Watch> _watches;    // folder that exists -> what is watched there
    std::map<int, std::string> _byDescriptor; // watch descriptor -> folder
    std::set<std::string> _unwatched;         // folders of _watches that inotify does not watch
    std::map<std::string, Look> _looks;       // folder asked for -> what stat saw, while unwatched
};
