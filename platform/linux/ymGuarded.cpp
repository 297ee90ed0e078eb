#include "platform/ymGuarded.h"

#include "platform/ymNSLog.h"

void ymGuardedFailed(const char *owner, const char *what, const char *why) noexcept
{
    ymNSLogLine("ymGuarded.cpp", __LINE__, "%s: %s threw: %s", owner, what, why);
}
