#include <YumoClientSdk/ymAppHelper.h>
#include <YumoClientSdk/ymClientFeatureMgr.h>
#include <YumoClientSdk/ymFileUtils.h>

#include <cstdint>

#include "foundation/ymLog.h"
#include "foundation/ymTextRules.h"

namespace {

struct ClientVersion {
    bool readable;
    uint64_t major;
    uint64_t minor;
};

// Splits the version into its first two components. Each 32-bit reading is widened with its
// sign and then taken as unsigned, so "-1" reads larger than every threshold.
ClientVersion readClientVersion(const char *function)
{
    std::string version = ymClientFeatureMgr::getYumoClientVersion();
    if (version.empty()) {
        YM_LOG("%s: Error! Cannot read yumo client version.", function);
        return {false, 0, 0};
    }
    YM_LOG("%s: Yumo Video Client verison is %s", function, version.c_str());
    std::vector<std::string> parts = ymText::componentsSeparatedBy(version, ".");
    int64_t major = !parts.empty() ? ymText::intValue(parts[0]) : 0;
    int64_t minor = parts.size() >= 2 ? ymText::intValue(parts[1]) : 0;
    return {true, static_cast<uint64_t>(major), static_cast<uint64_t>(minor)};
}

}  // namespace

ymClientFeatureMgr *ymClientFeatureMgr::sharedInstance()
{
    static ymClientFeatureMgr *shared = new ymClientFeatureMgr();
    return shared;
}

std::string ymClientFeatureMgr::getYumoClientVersion()
{
    std::string installPath = ymAppHelper::sharedInstance()->getYumoClientInstallPath();
    return ymGetFileVersion(installPath.c_str());
}

bool ymClientFeatureMgr::isSupportedYumoClientVersion()
{
    ClientVersion version = readClientVersion("-[ymClientFeatureMgr isSupportedYumoClientVersion]");
    if (!version.readable)
        return false;
    if (version.major > 4)
        return true;
    return version.major == 4 && version.minor >= 2;
}

bool ymClientFeatureMgr::isYumoClientSupportNewIPC()
{
    ClientVersion version = readClientVersion("-[ymClientFeatureMgr isYumoClientSupportNewIPC]");
    if (!version.readable)
        return false;
    if (version.major > 5)
        return true;
    return version.major == 5 && version.minor > 5;
}
