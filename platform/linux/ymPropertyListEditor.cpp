#include "platform/ymPropertyListEditor.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "platform/linux/ymPlistNodes.h"
#include "platform/ymFileManager.h"

struct ymPropertyListEditor::State {
    std::string path;
    bool binary = false;
    ymPlistNodes::Node root;
};

namespace {

// The keys of an entry: ":A:0:B" is A, 0, B.
std::vector<std::string> keysOf(const std::string &entry)
{
    std::vector<std::string> keys;
    size_t start = 0;
    while (start <= entry.size()) {
        size_t colon = entry.find(':', start);
        std::string key = entry.substr(start, colon == std::string::npos ? std::string::npos : colon - start);
        if (!key.empty())
            keys.push_back(key);
        if (colon == std::string::npos)
            break;
        start = colon + 1;
    }
    return keys;
}

bool isIndex(const std::string &key) { return !key.empty() && key.find_first_not_of("0123456789") == std::string::npos; }

plist_t child(plist_t node, const std::string &key)
{
    if (!node)
        return nullptr;
    if (plist_get_node_type(node) == PLIST_DICT)
        return plist_dict_get_item(node, key.c_str());
    if (plist_get_node_type(node) == PLIST_ARRAY && isIndex(key)) {
        unsigned long index = std::strtoul(key.c_str(), nullptr, 10);
        return index < plist_array_get_size(node) ? plist_array_get_item(node, static_cast<uint32_t>(index)) : nullptr;
    }
    return nullptr;
}

// The node the keys lead to; null, with the message, when there is none.
plist_t find(plist_t root, const std::vector<std::string> &keys, const std::string &entry, std::optional<std::string> &failure)
{
    plist_t node = root;
    for (const std::string &key : keys) {
        node = child(node, key);
        if (!node) {
            failure = "Entry, \"" + entry + "\", Does Not Exist";
            return nullptr;
        }
    }
    return node;
}

// A new node of the named type holding the text; null for a type there is none of.
plist_t makeNode(const std::string &type, const std::string &value)
{
    if (type == "string")
        return plist_new_string(value.c_str());
    if (type == "integer")
        return plist_new_uint(static_cast<uint64_t>(std::strtoll(value.c_str(), nullptr, 10)));
    if (type == "real")
        return plist_new_real(std::strtod(value.c_str(), nullptr));
    if (type == "bool")
        return plist_new_bool(value == "true" || value == "YES" || value == "1");
    if (type == "data")
        return plist_new_data(value.data(), value.size());
    if (type == "date")
        return plist_new_date(static_cast<int32_t>(std::strtol(value.c_str(), nullptr, 10)), 0);
    if (type == "array")
        return plist_new_array();
    if (type == "dict")
        return plist_new_dict();
    return nullptr;
}

const char *typeName(plist_t node)
{
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: return "bool";
    case PLIST_UINT: return "integer";
    case PLIST_REAL: return "real";
    case PLIST_DATE: return "date";
    case PLIST_DATA: return "data";
    case PLIST_ARRAY: return "array";
    case PLIST_DICT: return "dict";
    default: return "string";
    }
}

void print(plist_t node, int depth, std::string &out)
{
    std::string indent(static_cast<size_t>(depth) * 4, ' ');
    switch (plist_get_node_type(node)) {
    case PLIST_DICT:
        out += "Dict {\n";
        ymPlistNodes::forEachItem(node, [&](const char *key, plist_t value) {
            out += indent + "    " + key + " = ";
            print(value, depth + 1, out);
        });
        out += indent + "}\n";
        return;
    case PLIST_ARRAY:
        out += "Array {\n";
        for (uint32_t i = 0; i < plist_array_get_size(node); ++i) {
            out += indent + "    ";
            print(plist_array_get_item(node, i), depth + 1, out);
        }
        out += indent + "}\n";
        return;
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        out += value ? "true\n" : "false\n";
        return;
    }
    case PLIST_DATA: {
        char *bytes = nullptr;
        uint64_t length = 0;
        plist_get_data_val(node, &bytes, &length);
        out.append(bytes ? bytes : "", bytes ? length : 0);
        out += "\n";
        free(bytes);
        return;
    }
    case PLIST_STRING:
        out += ymPlistNodes::textOf(node) + "\n";
        return;
    case PLIST_UINT: {
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        out += std::to_string(value) + "\n";
        return;
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        char number[64];
        snprintf(number, sizeof number, "%.17g\n", value);
        out += number;
        return;
    }
    default:
        out += "\n";  // a date prints nothing
    }
}

}  // namespace

std::unique_ptr<ymPropertyListEditor> ymPropertyListEditor::open(const std::string &path)
{
    auto state = std::make_unique<State>();
    state->path = path;
    std::string bytes;
    if (ymFileManager::readRegularFile(path, bytes) != ymFileManager::ReadResult::read)
        return nullptr;
    state->root = ymPlistNodes::parse(bytes, &state->binary);
    if (!state->root)
        return nullptr;
    return std::unique_ptr<ymPropertyListEditor>(new ymPropertyListEditor(std::move(state)));
}

ymPropertyListEditor::ymPropertyListEditor(std::unique_ptr<State> state) : _state(std::move(state)) {}

ymPropertyListEditor::~ymPropertyListEditor() = default;

std::string ymPropertyListEditor::print(const std::string &entry, std::optional<std::string> &failure) const
{
    plist_t node = find(_state->root.get(), keysOf(entry), entry, failure);
    std::string out;
    if (node)
        ::print(node, 0, out);
    return out;
}

std::optional<std::string> ymPropertyListEditor::set(const std::string &entry, const std::string &value)
{
    std::vector<std::string> keys = keysOf(entry);
    if (keys.empty())
        return std::string("Set: Entry required");
    std::optional<std::string> failure;
    plist_t node = find(_state->root.get(), keys, entry, failure);
    if (!node)
        return failure;
    plist_t parent = find(_state->root.get(), std::vector<std::string>(keys.begin(), keys.end() - 1), entry, failure);
    plist_t replacement = makeNode(typeName(node), value);
    if (plist_get_node_type(parent) == PLIST_DICT)
        plist_dict_set_item(parent, keys.back().c_str(), replacement);
    else
        plist_array_set_item(parent, replacement, static_cast<uint32_t>(std::strtoul(keys.back().c_str(), nullptr, 10)));
    return std::nullopt;
}

std::optional<std::string> ymPropertyListEditor::add(const std::string &entry, const std::string &type, const std::string &value)
{
    std::vector<std::string> keys = keysOf(entry);
    if (keys.empty())
        return std::string("Add: Entry required");
    std::optional<std::string> failure;
    plist_t parent = find(_state->root.get(), std::vector<std::string>(keys.begin(), keys.end() - 1), entry, failure);
    if (!parent)
        return failure;
    if (child(parent, keys.back()))
        return "Add: \"" + entry + "\" Entry Already Exists";
    ymPlistNodes::Node node(makeNode(type, value));
    if (!node)
        return "Unrecognized Type: " + type;
    if (plist_get_node_type(parent) == PLIST_DICT)
        plist_dict_set_item(parent, keys.back().c_str(), node.release());
    else if (plist_get_node_type(parent) == PLIST_ARRAY)
        plist_array_append_item(parent, node.release());
    else
        return "Add: Can't Add Entry, \"" + entry + "\", to Parent";
    return std::nullopt;
}

std::optional<std::string> ymPropertyListEditor::remove(const std::string &entry)
{
    std::vector<std::string> keys = keysOf(entry);
    if (keys.empty())
        return std::string("Delete: Entry required");
    std::optional<std::string> failure;
    if (!find(_state->root.get(), keys, entry, failure))
        return failure;
    plist_t parent = find(_state->root.get(), std::vector<std::string>(keys.begin(), keys.end() - 1), entry, failure);
    if (plist_get_node_type(parent) == PLIST_DICT)
        plist_dict_remove_item(parent, keys.back().c_str());
    else
        plist_array_remove_item(parent, static_cast<uint32_t>(std::strtoul(keys.back().c_str(), nullptr, 10)));
    return std::nullopt;
}

bool ymPropertyListEditor::save() const
{
    return ymFileManager::writeFile(_state->path, ymPlistNodes::serialize(_state->root.get(), _state->binary));
}
