#include <YumoClientSdk/YumoClientSdk.h>
#include <cstdio>

#include "Commands.h"

namespace {
constexpr int kExitNo = 1;
const char *const kLaunchURL = "yumoconf://meet.yumocorp.com/start";

ymAppHelper &helper() { return *ymAppHelper::sharedInstance(); }

nlohmann::json orNull(const std::optional<std::string> &text) { return text ? nlohmann::json(*text) : nlohmann::json(); }
}  // namespace

int runLaunch(Arguments &arguments, Output &output)
{
    arguments.finish();
    bool wasRunning = helper().isYumoRunning();
    bool launched = helper().LaunchYumoClient();
    output.field("launched", launched, "launched");
    output.field("alreadyRunning", wasRunning, "already running", wasRunning ? "yes: asked to come forward" : "no");
    output.flush();
    return launched || wasRunning ? 0 : kExitNo;
}

int runActivate(Arguments &arguments, Output &output)
{
    std::string url = arguments.optionalPositional().value_or(kLaunchURL);
    arguments.finish();
    helper().walkWithAlreadyRunningYumoapp(url);
    output.field("posted", kNoti_ActivateYumoApplicationExternally, "posted");
    output.field("url", url, "url");
    output.flush();
    return 0;
}

int runSilentActivate(Arguments &arguments, Output &output)
{
    arguments.finish();
    bool running = helper().isYumoRunning();
    helper().silentActiveYumoClient();
    output.field("running", running, "running");
    output.field("posted", running, "posted", running ? kNoti_SilentActiveYumoApplication : "nothing: not running");
    output.flush();
    return running ? 0 : 5;
}

int runOutlook(Arguments &arguments, Output &output)
{
    bool launch = arguments.flag("--launch");
    arguments.finish();
    std::optional<std::string> version = helper().OutlookVersion();
    output.field("installed", helper().isOutlookInstalled(), "installed");
    output.field("version", orNull(version), "version");
    output.field("supported", helper().isSupportedOutlookVersion(), "supported (14.1.4+)");
    if (launch)
        output.field("launched", helper().launchOutlookApp(), "launched");
    output.field("running", helper().isOutlookRunning(), "running");
    output.flush();
    return 0;
}

int runOS(Arguments &arguments, Output &output)
{
    arguments.finish();
    int32_t version = helper().macOSVersion();
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%X", static_cast<unsigned>(version));
    output.field("version", version, "system version", version == 0 ? "0 (not known on this system)" : hex);
    output.field("supported", helper().isSupportedOSVersion(), "supported (after 0x1060)");
    output.flush();
    return 0;
}

int runLanguage(Arguments &arguments, Output &output)
{
    arguments.finish();
    output.field("language", orNull(helper().getSystemLanguage()), "language");
    output.flush();
    return 0;
}

int runVerifyApp(Arguments &arguments, Output &output)
{
    std::string path = arguments.positional("the application's path");
    arguments.finish();
    bool signedByMaker = helper().checkAppCodeSign(path);
    output.field("signed", signedByMaker, "signed by the maker");
    output.flush();
    return signedByMaker ? 0 : kExitNo;
}

int runVerifyPkg(Arguments &arguments, Output &output)
{
    std::string path = arguments.positional("the package's path");
    arguments.finish();
    bool signedByMaker = helper().checkCodeSignForYumoPkg(path);
    output.field("signed", signedByMaker, "signed by the maker");
    output.flush();
    return signedByMaker ? 0 : kExitNo;
}

int runSetBundleId(Arguments &arguments, Output &output)
{
    std::string plist = arguments.positional("the Info.plist's path");
    std::string identifier = arguments.positional("the new identifier");
    arguments.finish();
    bool changed = helper().modifyBundleIdentify(plist, identifier);
    output.field("changed", changed, "changed");
    output.flush();
    return changed ? 0 : kExitNo;
}
