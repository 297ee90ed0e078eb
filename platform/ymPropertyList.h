// Property lists (Info.plist files, defaults domains) in XML or binary form, as the SDK's own values.
//
// A property list reads as a ymValue: dictionaries, arrays, strings, integers, reals and booleans as
// themselves, data as its bytes in a text, dates as seconds since 2001-01-01 (a real). A value
// writes back the same way round (null as an empty string). The library that parses them stays
// behind this interface.
#pragma once

#include <YumoClientSdk/ymValue.h>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace ymPropertyList {

// Parses XML or binary property-list bytes; nothing when they are neither. `isBinary`, when
// given, tells which form they were in.
std::optional<ymValue> parse(const std::string &bytes, bool *isBinary = nullptr);

// Reads and parses a whole file; nothing when it is missing, unreadable, not a regular file or
// not a property list.
std::optional<ymValue> readFile(const std::string &path, bool *isBinary = nullptr);

// The same as readFile, but a file parsed before is not parsed again while it is unchanged: its
// device, inode, size and modification and change times are compared on every call (one stat),
// so a file replaced, rewritten or removed is always read afresh. Null as readFile.
std::shared_ptr<const ymValue> readFileShared(const std::string &path);

// The value as XML or binary property-list bytes.
std::string serialize(const ymValue &value, bool binary);

// A scalar as text, as a defaults value prints: texts as they are, whole and real numbers in
// decimal, Booleans as 1 or 0. Nothing for null, lists and dictionaries.
std::optional<std::string> textOf(const ymValue &value);

// The member of a dictionary as text (see textOf); nothing when there is no dictionary or no such
// member.
std::optional<std::string> textForKey(const ymValue *dictionary, const char *key);

// Changes a property list of bytes: `change` is handed the list as a value and answers the value
// to keep, or nothing to keep the bytes as they were. Members of dictionaries that `change` left
// as they were keep their exact form (their dates and data are not turned into reals and texts).
// Answers the new bytes (XML), or nothing when the bytes are not a property list or nothing
// changed.
std::optional<std::string> update(const std::string &bytes,
                                  const std::function<std::optional<ymValue>(const ymValue &root)> &change);

}  // namespace ymPropertyList
