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

// Writes the bytes to a new file (mode 0644), replacing an existing one whole:
// the bytes go to a temporary file beside it that is then renamed over it.
bool writeFile(const std::string &path, std::string_view bytes);

}  // namespace ymFileManager
