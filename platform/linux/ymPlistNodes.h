// libplist trees, shared by the two readers of property lists in this folder (ymPropertyList and
// ymPropertyListEditor): nothing outside platform/linux/ sees a libplist type.
#pragma once

#include <functional>
#include <memory>
#include <plist/plist.h>
#include <string>

namespace ymPlistNodes {

struct NodeFree {
    void operator()(plist_t node) const
    {
        if (node)
            plist_free(node);
    }
};
// An owned tree.
using Node = std::unique_ptr<void, NodeFree>;

// Parses XML or binary bytes; null when they are neither. Lists holding a zero character in a key
// or text are refused before parsing (libplist aborts on them).
Node parse(const std::string &bytes, bool *isBinary);

// The tree as XML or binary bytes.
std::string serialize(plist_t node, bool binary);

// Calls `visit` with each item of a dictionary node, in the order stored.
void forEachItem(plist_t dictionary, const std::function<void(const char *key, plist_t value)> &visit);

// A string node's text, read with its length.
std::string textOf(plist_t node);

}  // namespace ymPlistNodes
