#include <YumoClientSdk/ymAppHelper.h>

#include <YumoClientSdk/CMD.h>
#include <YumoClientSdk/ymFileUtils.h>
#include <algorithm>

#include "common/ymClientSnapshot.h"
#include "common/ymClientWatch.h"
#include "platform/ymBundle.h"
#include "platform/ymCertificate.h"
#include "platform/ymXarArchive.h"
#include "platform/ymGestalt.h"
#include "platform/ymNotificationCenter.h"
#include "platform/ymPropertyList.h"
#include "platform/ymUserDefaults.h"
#include "platform/ymWorkspace.h"
#include "foundation/ymLog.h"
#include "platform/ymThreadLocal.h"
#include "foundation/ymTextRules.h"

namespace {

// A text variable that a companion may have set to NULL reads as empty.
std::string textOf(const char *variable) { return variable ? variable : ""; }

const char *const kLaunchURL = "yumoconf://meet.yumocorp.com/start";
const int32_t kOldestSupportedOSVersion = 0x1060;

}  // namespace

ymAppHelper *ymAppHelper::sharedInstance()
{
    static ymAppHelper *shared = new ymAppHelper();
    return shared;
}

std::string ymAppHelper::getYumoappIdentifier() { return textOf(kYumoappIdentify); }

std::string ymAppHelper::getYumoappAppPath()
{
    return ymText::formatObject(textOf(kYumoappAppLaunchPath), textOf(kYumoClientAppName));
}

std::string ymAppHelper::getYumoappUserAppPath()
{
    return ymWorkspace::userApplicationsDirectory() + "/" + textOf(kYumoClientAppName);
}

namespace {

// The folder a path lies in ("" for none).
std::string parentOf(std::string path)
{
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return "";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// The four candidates, in order; the first that is a bundle is the answer. The search writes no
// line itself: it prepares the lines a look-up writes.
void searchInstallPath(ymAppHelper &helper, ymClientSnapshot &snapshot)
{
    // The path the meeting client registered in its defaults domain.
    if (std::optional<std::string> domainFile = ymUserDefaults::pathForDomain(snapshot.identifier))
        snapshot.folders.push_back(parentOf(*domainFile));
    std::shared_ptr<const ymValue> domain = ymUserDefaults::sharedDomain(snapshot.identifier);
    const ymValue *installPath = domain ? domain->find("installPath") : nullptr;
    if (installPath && installPath->isText()) {
        snapshot.folders.push_back(parentOf(installPath->text()));
        if (helper.IsAppExist(installPath->text())) {
            snapshot.installPath = installPath->text();
            return;
        }
    }

    std::string systemPath = helper.getYumoappAppPath();
    snapshot.folders.push_back(parentOf(systemPath));
    if (helper.IsAppExist(systemPath)) {
        snapshot.installPath = systemPath;
        return;
    }

    // Inside Outlook's sandbox "~" is Outlook's container; the client's own copy lives in the
    // real Library, so the container's segment is taken out again.
    std::string thirdPath = ymText::replacingOccurrences(ymText::standardizingPath(textOf(kYumoappUserAppLaunchPath)),
                                                         "Containers/com.microsoft.Outlook/Data/Library/", "");
    snapshot.folders.push_back(parentOf(thirdPath));
    snapshot.lookupLines.push_back(YM_LOG_PREPARE("%s: filePath = %s", "-[ymAppHelper getYumoClientInstallPath]", thirdPath.c_str()));
    if (helper.IsAppExist(thirdPath)) {
        snapshot.installPath = thirdPath;
        return;
    }
    snapshot.lookupLines.push_back(YM_LOG_PREPARE("Failed to get 3rd path: %s", thirdPath.c_str()));

    std::string fourthPath =
        ymText::replacingOccurrences(helper.getYumoappUserAppPath(), "Library/Containers/com.microsoft.Outlook/Data/", "");
    snapshot.folders.push_back(parentOf(fourthPath));
    if (helper.IsAppExist(fourthPath))
        snapshot.lookupLines.push_back(YM_LOG_PREPARE("Success to get 4th path: %s", fourthPath.c_str()));
    else
        snapshot.lookupLines.push_back(YM_LOG_PREPARE("Failed to get 4th path: %s", fourthPath.c_str()));
    snapshot.installPath = fourthPath;
}

}  // namespace

namespace {

std::array<const char *, 5> namesInForce()
{
    return {std::getenv("HOME"), kYumoappIdentify, kYumoappAppLaunchPath, kYumoClientAppName, kYumoappUserAppLaunchPath};
}

}  // namespace

bool ymClientSnapshotRestarted(const ymClientSnapshot &now, const ymClientSnapshot &before)
{
    if (!now.running || !before.running)
        return false;
    for (pid_t pid : before.processes)
        if (std::find(now.processes.begin(), now.processes.end(), pid) != now.processes.end())
            return false;
    return true;
}

bool ymClientSnapshotIsForNow(const ymClientSnapshot &snapshot)
{
    std::array<const char *, 5> now = namesInForce();
    for (size_t i = 0; i < now.size(); ++i) {
        const std::optional<std::string> &then = snapshot.takenFor[i];
        if (!now[i] != !then || (now[i] && std::strcmp(now[i], then->c_str()) != 0))
            return false;
    }
    return true;
}

std::shared_ptr<ymClientSnapshot> ymTakeClientSnapshot()
{
    ymAppHelper &helper = *ymAppHelper::sharedInstance();
    auto snapshot = std::make_shared<ymClientSnapshot>();
    std::array<const char *, 5> names = namesInForce();
    for (size_t i = 0; i < names.size(); ++i)
        if (names[i])
            snapshot->takenFor[i] = names[i];
    snapshot->identifier = helper.getYumoappIdentifier();
    searchInstallPath(helper, *snapshot);
    const std::string &bundle = snapshot->installPath;
    snapshot->installed = helper.IsAppExist(bundle);
    snapshot->executablePath = ymBundle::executablePath(bundle);
    snapshot->version = ymGetFileVersion(bundle.c_str());
    std::vector<std::string> parts = ymText::componentsSeparatedBy(snapshot->version, ".");
    snapshot->versionMajor = !parts.empty() ? ymText::intValue(parts[0]) : 0;
    snapshot->versionMinor = parts.size() >= 2 ? ymText::intValue(parts[1]) : 0;
    snapshot->folders.push_back(bundle);
    snapshot->folders.push_back(bundle + "/Contents");
    snapshot->executableFolder = bundle + "/Contents/MacOS";
    for (const ymWorkspace::RunningApplication &application : ymWorkspace::runningApplications())
        if (ymBundle::bundleIdentifier(application.bundlePath) == snapshot->identifier)
            snapshot->processes.push_back(application.pid);
    snapshot->running = !snapshot->processes.empty();
    return snapshot;
}

void ymWriteLookupLines(const ymClientSnapshot &snapshot)
{
    for (const ymlog::PreparedLine &line : snapshot.lookupLines)
        line.write();
}

std::string ymAppHelper::getYumoClientInstallPath()
{
    std::shared_ptr<const ymClientSnapshot> client = ymClientWatch::shared().current();
    ymWriteLookupLines(*client);
    return client->installPath;
}

bool ymAppHelper::IsAppExist(const std::optional<std::string> &path)
{
    if (!path)
        return false;
    return ymWorkspace::isFilePackageAtPath(*path);
}

std::optional<std::string> ymAppHelper::getYumoappLaunchPath(BOOL *exists)
{
    std::shared_ptr<const ymClientSnapshot> client = ymClientWatch::shared().current();
    ymWriteLookupLines(*client);
    if (exists)
        *exists = client->installed ? YES : NO;
    return client->executablePath;
}

bool ymAppHelper::isYumoappInstalled()
{
    BOOL exists = NO;
    getYumoappLaunchPath(&exists);
    return exists == YES;
}

bool ymAppHelper::isYumoRunning() { return ymClientWatch::shared().current()->running; }

bool ymAppHelper::LaunchYumoClient()
{
    static const char *const kFn = "-[ymAppHelper LaunchYumoClient]";
    BOOL exists = NO;
    std::optional<std::string> launchPath = getYumoappLaunchPath(&exists);
    if (!launchPath || !exists) {
        YM_LOG("Error, %s does not exist, quit!", ymlog::describe(launchPath));
        return false;
    }
    if (isYumoRunning()) {
        // Asked to come forward instead; it was not launched, and the answer says so.
        YM_LOG("yumoapp is already running");
        std::string url = kLaunchURL;
        YM_LOG("%s: launchPath = %s, param = %s", kFn, launchPath->c_str(), url.c_str());
        walkWithAlreadyRunningYumoapp(url);
        return false;
    }
    if (launchPath->empty()) {
        YM_LOG("%s: fileURL is nil!", kFn);
        return false;
    }
    if (ymWorkspace::launchDetached(*launchPath) < 0) {
        YM_LOG("%s: launch yumo client failed.", kFn);
        return false;
    }
    return true;
}

void ymAppHelper::walkWithAlreadyRunningYumoapp(const std::optional<std::string> &url)
{
    ymNotificationCenter::UserInfo userInfo;
    if (url && kParam_ActivateYumoApplicationExternally)
        userInfo.emplace(kParam_ActivateYumoApplicationExternally, *url);
    ymNotificationCenter::defaultCenter().post(textOf(kNoti_ActivateYumoApplicationExternally), userInfo);
}

void ymAppHelper::silentActiveYumoClient()
{
    static const char *const kFn = "-[ymAppHelper silentActiveYumoClient]";
    if (isYumoRunning()) {
        YM_LOG("%s: yumoapp is already running", kFn);
        silentActiveAlreadyRunningYumoapp();
    } else {
        YM_LOG("%s: yumoapp is not running!", kFn);
    }
}

void ymAppHelper::silentActiveAlreadyRunningYumoapp()
{
    ymNotificationCenter::defaultCenter().post(textOf(kNoti_SilentActiveYumoApplication), std::nullopt);
}

bool ymAppHelper::launchApplicationWithBundleIdentifier(const std::optional<std::string> &bundleIdentifier)
{
    if (!bundleIdentifier)
        return false;
    std::optional<std::string> bundle = ymWorkspace::absolutePathForAppBundleWithIdentifier(*bundleIdentifier);
    if (!bundle)
        return false;
    if (ymWorkspace::isApplicationRunning(*bundleIdentifier))
        return true;  // launching a running application brings it forward
    std::optional<std::string> executable = ymBundle::executablePath(*bundle);
    return executable && ymWorkspace::launchDetached(*executable) >= 0;
}

bool ymAppHelper::isAppRunningWithBundleIdentifier(const std::optional<std::string> &bundleIdentifier)
{
    return bundleIdentifier && ymWorkspace::isApplicationRunning(*bundleIdentifier);
}

bool ymAppHelper::isAppInstalledWithBundleIdentifier(const std::optional<std::string> &bundleIdentifier)
{
    if (!bundleIdentifier)
        return false;
    std::optional<std::string> bundle = ymWorkspace::absolutePathForAppBundleWithIdentifier(*bundleIdentifier);
    return bundle && !bundle->empty();
}

bool ymAppHelper::modifyBundleIdentify(const std::optional<std::string> &plistPath, const std::optional<std::string> &identifier)
{
    static const char *const kFn = "-[ymAppHelper modifyBundleIdentify:identifyName:]";
    if (!ymIsFileExist(plistPath ? plistPath->c_str() : nullptr)) {
        YM_LOG("%s: %s is not existed!", kFn, ymlog::describe(plistPath));
        return false;
    }
    // The identifier and the path go in as they are: a quote in either breaks the command.
    std::string command = std::string("/usr/libexec/PlistBuddy -c \"Set:CFBundleIdentifier ") +
                          ymlog::describe(identifier) + "\" \"" + *plistPath + "\"";
    if (CMD::runAsCommand_ret(command) != 0) {
        YM_LOG("%s: failed!", kFn);
        return false;
    }
    return true;
}

int32_t ymAppHelper::macOSVersion()
{
    int32_t response = 0;
    if (ymGestalt::gestalt(ymGestalt::kSystemVersionSelector, &response) != 0)
        return 0;
    return response;
}

bool ymAppHelper::isSupportedOSVersion() { return macOSVersion() > kOldestSupportedOSVersion; }

std::optional<std::string> ymAppHelper::OutlookVersion()
{
    std::optional<std::string> bundle = ymWorkspace::absolutePathForAppBundleWithIdentifier(textOf(keyOutlookIdentifier));
    // Without Outlook the path prints "(null)" and names no file.
    std::string infoPath = std::string(ymlog::describe(bundle)) + "/Contents/Info.plist";
    std::optional<ymValue> value = objectForPropertyListKey(std::string("CFBundleShortVersionString"), infoPath);
    std::optional<std::string> version;
    if (value && value->isText())
        version = value->text();
    if (version && !version->empty())
        return version;
    YM_LOG("%s: bundlePath [%s], shortVersion [%s]", "-[ymAppHelper OutlookVersion]", ymlog::describe(bundle),
           ymlog::describe(version));
    return version;
}

bool ymAppHelper::isSupportedOutlookVersion()
{
    std::optional<std::string> version = OutlookVersion();
    if (!version)
        return false;
    std::vector<std::string> parts = ymText::componentsSeparatedBy(*version, ".");
    int32_t major = ymText::intValue(parts[0]);
    int32_t minor = parts.size() >= 2 ? ymText::intValue(parts[1]) : 0;
    int32_t patch = parts.size() >= 3 ? ymText::intValue(parts[2]) : 0;
    if (major != 14)
        return major > 14;
    if (minor != 1)
        return minor > 1;
    return patch > 3;
}

std::optional<ymValue> ymAppHelper::objectForPropertyListKey(const std::optional<std::string> &key,
                                                             const std::optional<std::string> &filePath)
{
    if (!key || !filePath)
        return std::nullopt;
    std::optional<ymValue> root = ymPropertyList::readFile(*filePath);
    const ymValue *value = root ? root->find(*key) : nullptr;
    if (!value)
        return std::nullopt;
    return *value;
}

bool ymAppHelper::launchOutlookApp() { return launchApplicationWithBundleIdentifier(textOf(keyOutlookIdentifier)); }

bool ymAppHelper::isOutlookRunning() { return isAppRunningWithBundleIdentifier(textOf(keyOutlookIdentifier)); }

bool ymAppHelper::isOutlookInstalled() { return isAppInstalledWithBundleIdentifier(textOf(keyOutlookIdentifier)); }

std::optional<std::string> ymAppHelper::getSystemLanguage()
{
    std::optional<std::vector<std::string>> languages = ymUserDefaults::preferredLanguages();
    if (!languages || languages->empty())
        return std::nullopt;
    return languages->front();
}

std::string ymAppHelper::codeSignCommandLine(const std::string &path)
{
    // Two blanks before -R=, and the path quoted but not escaped, as it has always been.
    return "/usr/bin/codesign -v --verbose=1  -R=\"anchor apple generic and certificate leaf[subject.OU] = Q4W7N2R8TX\" \"" +
           path + "\"";
}

bool ymAppHelper::checkAppCodeSign(const std::optional<std::string> &path)
{
    if (!path || path->empty())
        return false;
    return CMD::runAsCommand_ret(codeSignCommandLine(*path)) == 0;
}

bool ymAppHelper::checkCodeSignForYumoPkg(const std::optional<std::string> &path)
{
    YM_LOG("%s", "-[ymAppHelper checkCodeSignForYumoPkg:]");
    if (!path)
        return false;
    std::optional<ymXarArchive> archive = ymXarArchive::open(*path);
    if (!archive || !archive->firstSignature())
        return false;

    // The certificates in the archive's order. One that does not parse leaves the slot with the
    // certificate before it, which is then taken a second time; the first must parse.
    std::vector<ymCertificate> certificates;
    std::optional<ymCertificate> slot;
    int32_t count = static_cast<int32_t>(archive->firstSignature()->certificates.size());
    for (int32_t index = 0; index < count; ++index) {
        std::optional<std::string> der = archive->certificateData(static_cast<size_t>(index));
        if (!der)
            return false;
        if (std::optional<ymCertificate> certificate = ymCertificate::fromDER(*der))
            slot = std::move(certificate);
        if (!slot)
            return false;
        certificates.push_back(*slot);
    }
    if (count <= 2)
        return false;

    std::optional<std::string> signer = certificates[0].longDescription();
    bool signerMatches = signer && *signer == "Developer ID Installer: Yumocorp (Q4W7N2R8TX)";
    // Always the third certificate, whatever the length of the chain.
    std::optional<std::string> root = certificates[2].longDescription();
    if (!root)
        return false;
    bool rootMatches = *root == "Apple Root CA";
    return signerMatches && rootMatches;
}
