#include <YumoClientSdk/CMD.h>

#include "platform/ymTask.h"
#include "foundation/ymTextRules.h"

std::optional<std::string> CMD::runAsCommand(const std::string &commandLine)
{
    std::optional<std::string> output = ymTask::runShellCapturingOutput(commandLine);
    if (!output || !ymText::isValidUtf8(*output))
        return std::nullopt;
    return output;
}

int32_t CMD::runAsCommand_ret(const std::string &commandLine)
{
    return ymTask::runShell(commandLine);
}
