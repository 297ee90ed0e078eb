// Property lists (Info.plist files, defaults domains) in XML or binary form, on libplist.
#pragma once

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <plist/plist.h>
#include <string>

namespace ymPropertyList {

struct NodeFree {
    void operator()(plist_t node) const
    {
        if (node)
            plist_free(node);
    }
};
// An owned property-list tree.
using Node = std::unique_ptr<void, NodeFree>;

// Parses XML or binary property-list bytes; null when they are neither. `isBinary`, when given,
// tells which form they were in.
Node parse(const std::string &bytes, bool *isBinary = nullptr);

// Reads and parses a whole file; null when it is missing, unreadable or not a property list.
Node readFile(const std::string &path, bool *isBinary = nullptr);

// A parsed file shared by its readers; treat it as read-only.
using SharedNode = std::shared_ptr<void>;

// The same as readFile, but a file parsed before is not parsed again while it is unchanged: its
// device, inode, size and modification and change times are compared on every call (one stat),
// so a file replaced, rewritten or removed is always read afresh.
SharedNode readFileShared(const std::string &path);

// The node as XML or binary bytes.
std::string serialize(plist_t node, bool binary);

// A scalar as text, as a defaults value prints: strings as they are, integers and reals in
// decimal, booleans as 1 or 0. Nothing for containers, data and dates.
std::optional<std::string> textOf(plist_t node);

// The value of `key` in a dictionary node as text (see textOf); nothing when the node is not a
// dictionary or has no such key.
std::optional<std::string> textForKey(plist_t dictionary, const char *key);

// Calls `visit` with each item of a dictionary node, in the order stored. Keys are never read
// with a zero byte inside: parse() refuses such lists.
void forEachItem(plist_t dictionary, const std::function<void(const char *key, plist_t value)> &visit);

// The node as JSON: dictionaries, arrays, strings, integers, reals and booleans as themselves;
// data as its bytes in a string, dates as seconds since 2001-01-01 (a real).
nlohmann::json toJSON(plist_t node);

}  // namespace ymPropertyList
