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

#include "platform/ymPropertyListEditor.h"

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

// Runs one command on the list; answers whether the list changed. A failure prints its message.
bool run(ymPropertyListEditor &list, const std::string &command, bool &failed)
{
    std::string verb = command.substr(0, command.find_first_of(" :"));
    std::string rest = command.substr(verb.size());
    while (!rest.empty() && rest.front() == ' ')
        rest.erase(0, 1);
    std::string entry = rest.substr(0, rest.find(' '));
    std::string argument = entry.size() < rest.size() ? rest.substr(entry.size() + 1) : "";
    std::optional<std::string> failure;
    bool changes = true;
    if (verb == "Print") {
        std::string text = list.print(entry, failure);
        std::fwrite(text.data(), 1, text.size(), stdout);
        changes = false;
    } else if (verb == "Set") {
        failure = list.set(entry, argument);
    } else if (verb == "Add") {
        std::string type = argument.substr(0, argument.find(' '));
        failure = list.add(entry, type, type.size() < argument.size() ? argument.substr(type.size() + 1) : "");
    } else if (verb == "Delete") {
        failure = list.remove(entry);
    } else {
        failure = "Unrecognized Command: " + verb;
    }
    if (failure) {
        std::fprintf(stderr, "%s\n", failure->c_str());
        failed = true;
        return false;
    }
    return changes;
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
    std::unique_ptr<ymPropertyListEditor> list = ymPropertyListEditor::open(file);
    if (!list) {
        std::fprintf(stderr, "Error Reading File: %s\n", file.c_str());
        return 1;
    }
    bool changed = false;
    bool failed = false;
    for (const std::string &command : commands) {
        changed = run(*list, command, failed) || changed;
        if (failed)
            return 1;
    }
    if (changed && !list->save()) {
        std::fprintf(stderr, "Error Writing File: %s\n", file.c_str());
        return 1;
    }
    return 0;
}
