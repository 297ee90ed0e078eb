// The platform's application-group containers: a folder shared by the applications of one
// maker, found by the group's identifier.
#pragma once

#include <optional>
#include <string>

namespace ymAppGroupContainer {

// The container's path for the group (whether or not it exists yet); nil when the process has
// no home folder to put it in.
std::optional<std::string> pathForGroup(const std::string &groupIdentifier);

// Creates the folder with mode 0700, and any missing parents. Answers whether it exists now.
bool create(const std::string &path);

}  // namespace ymAppGroupContainer
