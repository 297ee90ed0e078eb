// PlistBuddy: reads and edits property lists, compatible with the commands the SDK and companions
// use of the system tool of that name. XML and binary files keep their format.
//
//   PlistBuddy -c "Print[:Entry]" FILE        prints the entry (the whole list without one)
//   PlistBuddy -c "Set :Entry Value" FILE     sets an existing entry, keeping its type
//   PlistBuddy -c "Add :Entry Type [Value]" FILE   adds an entry (string, integer, real, bool,
//                                                  date, data, array, dict)
//   PlistBuddy -c "Delete :Entry" FILE        removes an entry
//
// Entries are keys separated by ":"; an array element is named by its index. Several -c options
// run in order and the file is written once, after the last. Exit status 0; 1 with a message on
// standard error when a command fails or the file cannot be read or written; 64 with one line
// naming the argument for a command line it does not take. PlistBuddy -h prints the usage.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/ymFileManager.h"
#include "platform/ymPropertyList.h"

namespace {

// Also tells the build script that an installed PlistBuddy is this one.
const char *const kUsage =
    "Usage: PlistBuddy -c \"<command>\" <file.plist>   (YumoClientSdk PlistBuddy)\n"
    "Commands (each -c runs one, in order; the file is written once, after the last):\n"
    "  Print[ :Entry]             prints the entry, or the whole list\n"
    "  Set :Entry Value           sets an existing entry, keeping its type\n"
    "  Add :Entry Type [Value]    adds an entry: string, integer, real, bool, date, data, array or dict\n"
    "  Delete :Entry              removes an entry\n"
    "Entries are keys separated by \":\"; an array element is named by its index.\n"
    "Exit status: 0 done; 1 a command failed or the file could not be read or written; 64 a usage error.\n";

[[noreturn]] void usageError(const std::string &message)
{
    std::fprintf(stderr, "PlistBuddy: %s\n", message.c_str());
    std::exit(64);
}

struct Failure {
    std::string message;
};

std::vector<std::string> entryPath(std::string entry)
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

bool isIndex(const std::string &key)
{
    return !key.empty() && key.find_first_not_of("0123456789") == std::string::npos;
}

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

plist_t find(plist_t root, const std::vector<std::string> &keys, const std::string &entry)
{
    plist_t node = root;
    for (const std::string &key : keys) {
        node = child(node, key);
        if (!node)
            throw Failure{"Entry, \"" + entry + "\", Does Not Exist"};
    }
    return node;
}

// A new node of the named type holding the text.
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
    throw Failure{"Unrecognized Type: " + type};
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

void print(plist_t node, int depth)
{
    std::string indent(static_cast<size_t>(depth) * 4, ' ');
    switch (plist_get_node_type(node)) {
    case PLIST_DICT:
        std::printf("Dict {\n");
        ymPropertyList::forEachItem(node, [&](const char *key, plist_t value) {
            std::printf("%s    %s = ", indent.c_str(), key);
            print(value, depth + 1);
        });
        std::printf("%s}\n", indent.c_str());
        return;
    case PLIST_ARRAY:
        std::printf("Array {\n");
        for (uint32_t i = 0; i < plist_array_get_size(node); ++i) {
            std::printf("%s    ", indent.c_str());
            print(plist_array_get_item(node, i), depth + 1);
        }
        std::printf("%s}\n", indent.c_str());
        return;
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        std::printf("%s\n", value ? "true" : "false");
        return;
    }
    case PLIST_DATA: {
        char *bytes = nullptr;
        uint64_t length = 0;
        plist_get_data_val(node, &bytes, &length);
        std::fwrite(bytes, 1, length, stdout);
        std::printf("\n");
        free(bytes);
        return;
    }
    default:
        std::printf("%s\n", ymPropertyList::textOf(node).value_or("").c_str());
    }
}

// Runs one command on the tree; answers whether the tree changed.
bool run(plist_t root, const std::string &command)
{
    std::string verb = command.substr(0, command.find_first_of(" :"));
    std::string rest = command.substr(verb.size());
    while (!rest.empty() && rest.front() == ' ')
        rest.erase(0, 1);
    std::string entry = rest.substr(0, rest.find(' '));
    std::string argument = entry.size() < rest.size() ? rest.substr(entry.size() + 1) : "";
    std::vector<std::string> keys = entryPath(entry);

    if (verb == "Print") {
        print(find(root, keys, entry), 0);
        return false;
    }
    if (keys.empty())
        throw Failure{verb + ": Entry required"};
    std::vector<std::string> parentKeys(keys.begin(), keys.end() - 1);
    plist_t parent = find(root, parentKeys, entry);
    const std::string &last = keys.back();
    if (verb == "Set") {
        plist_t node = find(root, keys, entry);
        plist_t value = makeNode(typeName(node), argument);
        if (plist_get_node_type(parent) == PLIST_DICT)
            plist_dict_set_item(parent, last.c_str(), value);
        else
            plist_array_set_item(parent, value, static_cast<uint32_t>(std::strtoul(last.c_str(), nullptr, 10)));
        return true;
    }
    if (verb == "Add") {
        std::string type = argument.substr(0, argument.find(' '));
        std::string value = type.size() < argument.size() ? argument.substr(type.size() + 1) : "";
        if (child(parent, last))
            throw Failure{"Add: \"" + entry + "\" Entry Already Exists"};
        plist_t node = makeNode(type, value);
        if (plist_get_node_type(parent) == PLIST_DICT)
            plist_dict_set_item(parent, last.c_str(), node);
        else if (plist_get_node_type(parent) == PLIST_ARRAY)
            plist_array_append_item(parent, node);
        else {
            plist_free(node);
            throw Failure{"Add: Can't Add Entry, \"" + entry + "\", to Parent"};
        }
        return true;
    }
    if (verb == "Delete") {
        find(root, keys, entry);
        if (plist_get_node_type(parent) == PLIST_DICT)
            plist_dict_remove_item(parent, last.c_str());
        else
            plist_array_remove_item(parent, static_cast<uint32_t>(std::strtoul(last.c_str(), nullptr, 10)));
        return true;
    }
    throw Failure{"Unrecognized Command: " + verb};
}

}  // namespace

int main(int argc, char **argv)
{
    std::vector<std::string> commands;
    std::string file;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "-h") || !std::strcmp(argv[i], "--help")) {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (!std::strcmp(argv[i], "-c")) {
            if (i + 1 >= argc)
                usageError("-c needs a command: Print, Set, Add or Delete (PlistBuddy -h tells more)");
            commands.push_back(argv[++i]);
        } else if (argv[i][0] == '-') {
            usageError(std::string("unknown option \"") + argv[i] + "\": -c \"COMMAND\" or -h");
        } else if (file.empty()) {
            file = argv[i];
        } else {
            usageError(std::string("one property list at a time, not also \"") + argv[i] + "\"");
        }
    }
    if (file.empty())
        usageError("say which property list: PlistBuddy -c \"COMMAND\" FILE");
    if (commands.empty())
        usageError("say what to do with -c \"COMMAND\": Print, Set, Add or Delete");
    bool binary = false;
    ymPropertyList::Node root = ymPropertyList::readFile(file, &binary);
    if (!root) {
        std::fprintf(stderr, "Error Reading File: %s\n", file.c_str());
        return 1;
    }
    try {
        bool changed = false;
        for (const std::string &command : commands)
            changed = run(root.get(), command) || changed;
        if (changed && !ymFileManager::writeFile(file, ymPropertyList::serialize(root.get(), binary))) {
            std::fprintf(stderr, "Error Writing File: %s\n", file.c_str());
            return 1;
        }
    } catch (const Failure &failure) {
        std::fprintf(stderr, "%s\n", failure.message.c_str());
        return 1;
    }
    return 0;
}
