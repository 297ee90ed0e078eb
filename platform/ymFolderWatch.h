// Folders watched for changes, on a descriptor of their own: whoever asks learns whether anything
// changed in them since it last asked, at the cost of one read, and a loop may wait on the
// descriptor to hear of changes as they happen.
//
// A folder that does not exist is watched through its nearest ancestor that does: its creation is
// a change. A watched folder that is removed or moved away is a change too.
#pragma once

#include <map>
#include <string>
#include <vector>

class ymFolderWatch {
public:
    ymFolderWatch();
    ~ymFolderWatch();

    // Watches these folders from now on, and no others; the files of `execFolder` (when not empty)
    // are watched for being opened too, which is how a program in it is seen to start. Answers
    // false when a folder could not be watched (no descriptor, too many watches): changes to it
    // may then go unseen.
    bool watchOnly(const std::vector<std::string> &folders, const std::string &execFolder);

    // True when anything changed in a watched folder since the last call; takes what is pending.
    bool changed();

    // True when a change is pending, without taking it.
    bool pending() const;

    // Readable while a change is pending; -1 when there is no descriptor.
    int descriptor() const { return _fd; }

    ymFolderWatch(const ymFolderWatch &) = delete;
    ymFolderWatch &operator=(const ymFolderWatch &) = delete;

private:
    int _fd;
    std::map<std::string, int> _watches;  // folder actually watched -> watch descriptor
};
