// The file manager: the file operations the SDK uses, on POSIX calls. Paths are plain UTF-8 texts.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ymFileManager {

// Anything at the path (a link counts when it points somewhere).
bool exists(const std::string &path);
bool isDirectory(const std::string &path);

// The item may be removed: its folder is writable and searchable by this process.
bool isDeletable(const std::string &path);

// Removes a file, a link, or a folder with its contents.
bool removeItem(const std::string &path);

// Creates the folder and any missing parents (mode 0777 less the umask).
bool createDirectory(const std::string &path);

// Renames; across file systems the item (a file, a link, or a folder with everything in it) is
// copied with its modes and modification times, and the original removed once the copy is whole.
bool moveItem(const std::string &source, const std::string &destination);

// Entry names, "." and ".." left out; nothing when the folder cannot be listed.
std::optional<std::vector<std::string>> contentsOfDirectory(const std::string &path);

// Opens a regular file for reading. Never blocks: a FIFO, a device or a folder at the path is
// refused at once (-1 with errno EINVAL), as is a path that cannot be opened (-1, errno as open
// left it). The caller closes the descriptor.
int openRegularFile(const std::string &path);

// How reading a whole file went: only a path where nothing is (ENOENT) is `missing`; anything
// else that keeps the bytes from being read (no permission, an I/O error, no descriptor left, a
// path that is not a regular file) is `unreadable`.
enum class ReadResult { read, missing, unreadable };

// Reads the whole regular file at the path into `bytes`.
ReadResult readRegularFile(const std::string &path, std::string &bytes);

// Writes the bytes to a new file (mode 0644), replacing an existing one whole:
// the bytes go to a temporary file beside it that is then renamed over it.
bool writeFile(const std::string &path, std::string_view bytes);

// Removes the temporary files that writes of `path` left behind when their process was killed
// half way. Only a caller that knows no other write of the path is under way (one that holds the
// path's lock) may call it.
void removeLeftoverTemporaries(const std::string &path);

}  // namespace ymFileManager
