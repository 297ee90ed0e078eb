#include <YumoClientSdk/ymFileUtils.h>

#include "Commands.h"

namespace {
constexpr int kExitNo = 1;

int answer(Output &output, const char *key, BOOL value)
{
    output.field(key, value == YES, key);
    output.flush();
    return value == YES ? 0 : kExitNo;
}
}  // namespace

int runFile(Arguments &arguments, Output &output)
{
    std::string action = arguments.positional("a file action: exists, is-dir, delete, mkdir, list, size, version, move or create");
    if (action == "exists" || action == "is-dir" || action == "delete" || action == "mkdir") {
        std::string path = arguments.positional("a path");
        arguments.finish();
        if (action == "exists")
            return answer(output, "exists", ymIsFileExist(path.c_str()));
        if (action == "is-dir")
            return answer(output, "directory", ymIsDirection(path.c_str()));
        if (action == "delete")
            return answer(output, "deleted", ymDeleteFile(path.c_str()));
        return answer(output, "created", ymCreateDirection(path.c_str()));
    }
    if (action == "list") {
        std::string path = arguments.positional("a folder");
        arguments.finish();
        const char *const *items = ymGetDirectoryItems(path.c_str());
        if (!items) {
            output.field("items", nullptr, "items", "(not a folder)");
            output.flush();
            return kExitNo;
        }
        nlohmann::json names = nlohmann::json::array();
        for (; *items; ++items)
            names.push_back(*items);
        if (output.json()) {
            output.field("items", names, "items");
            output.flush();
        } else {
            for (const nlohmann::json &name : names)
                output.note(name.get<std::string>());
        }
        return 0;
    }
    if (action == "move") {
        std::string source = arguments.positional("the source");
        std::string destination = arguments.positional("the destination");
        arguments.finish();
        return answer(output, "moved", ymMoveFile(source.c_str(), destination.c_str()));
    }
    if (action == "version") {
        std::string path = arguments.positional("a bundle");
        arguments.finish();
        std::string version = ymGetFileVersion(path.c_str());
        output.field("version", version, "version", version.empty() ? "(none)" : version);
        output.flush();
        return version.empty() ? kExitNo : 0;
    }
    if (action == "size") {
        std::string path = arguments.positional("a path");
        arguments.finish();
        output.field("size", ymGetFileSizeFromPath(path.c_str()), "size");
        output.flush();
        return 0;
    }
    if (action == "create") {
        std::string path = arguments.positional("a path");
        std::optional<std::string> content = arguments.optionalPositional();
        arguments.finish();
        return answer(output, "created", ymCreateFile(path.c_str(), content ? content->c_str() : nullptr));
    }
    throw UsageError("unknown file action \"" + action + "\": exists, is-dir, delete, mkdir, list, size, version, move or create");
}
