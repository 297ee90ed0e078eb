#include <YumoClientSdk/ymAppHelper.h>

#include <YumoClientSdk/CMD.h>
#include <YumoClientSdk/ymFileUtils.h>

#include "common/ymClientLookupScope.h"
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
#include "foundation/ymValueJSON.h"

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

// How the last lookup found the client, so that a lookup within the same command can answer the
// same and log the same.
enum class Candidate { registered, system, ownCopy, userApplications };

struct Lookup {
    Candidate candidate = Candidate::userApplications;
    std::string path;
    std::string thirdPath;
    bool fourthExists = false;
};

struct LookupMemo {
    int depth = 0;
    std::optional<Lookup> lookup;
};
// The memo of this thread's commands; gone (nullptr) while the thread ends, when look-ups are
// simply fresh.
LookupMemo *memo() { return ymThreadLocalInstance<LookupMemo>(); }

// The log lines of a lookup, each written from one place so that a replayed lookup prints the very
// same lines.
void logThirdCandidate(const std::string &path)
{
    YM_LOG("%s: filePath = %s", "-[ymAppHelper getYumoClientInstallPath]", path.c_str());
}
void logThirdFailed(const std::string &path) { YM_LOG("Failed to get 3rd path: %s", path.c_str()); }
void logFourth(const std::string &path, bool exists)
{
    if (exists)
        YM_LOG("Success to get 4th path: %s", path.c_str());
    else
        YM_LOG("Failed to get 4th path: %s", path.c_str());
}

void replay(const Lookup &lookup)
{
    if (lookup.candidate == Candidate::ownCopy || lookup.candidate == Candidate::userApplications)
        logThirdCandidate(lookup.thirdPath);
    if (lookup.candidate == Candidate::userApplications) {
        logThirdFailed(lookup.thirdPath);
        logFourth(lookup.path, lookup.fourthExists);
    }
}

Lookup lookUpClient(ymAppHelper &helper);

}  // namespace

ymClientLookupScope::ymClientLookupScope()
{
    if (LookupMemo *current = memo())
        ++current->depth;
}

ymClientLookupScope::~ymClientLookupScope()
{
    LookupMemo *current = memo();
    if (current && current->depth > 0 && --current->depth == 0)
        current->lookup.reset();
}

std::string ymAppHelper::getYumoClientInstallPath()
{
    LookupMemo *current = memo();
    if (current && current->depth > 0 && current->lookup) {
        replay(*current->lookup);
        return current->lookup->path;
    }
    Lookup lookup = lookUpClient(*this);
    if (current && current->depth > 0)
        current->lookup = lookup;
    return lookup.path;
}

namespace {

Lookup lookUpClient(ymAppHelper &helper)
{
    // The path the meeting client registered in its defaults domain.
    ymPropertyList::SharedNode domain = ymUserDefaults::sharedDomain(helper.getYumoappIdentifier());
    if (domain) {
        plist_t installPath = plist_dict_get_item(domain.get(), "installPath");
        if (installPath && plist_get_node_type(installPath) == PLIST_STRING) {
            std::optional<std::string> path = ymPropertyList::textOf(installPath);
            if (helper.IsAppExist(path))
                return {Candidate::registered, *path, "", false};
        }
    }

    std::string systemPath = helper.getYumoappAppPath();
    if (helper.IsAppExist(systemPath))
        return {Candidate::system, systemPath, "", false};

    // Inside Outlook's sandbox "~" is Outlook's container; the client's own copy lives in the
    // real Library, so the container's segment is taken out again.
    std::string thirdPath = ymText::replacingOccurrences(ymText::standardizingPath(textOf(kYumoappUserAppLaunchPath)),
                                                         "Containers/com.microsoft.Outlook/Data/Library/", "");
    logThirdCandidate(thirdPath);
    if (helper.IsAppExist(thirdPath))
        return {Candidate::ownCopy, thirdPath, thirdPath, false};
    logThirdFailed(thirdPath);

    std::string fourthPath =
        ymText::replacingOccurrences(helper.getYumoappUserAppPath(), "Library/Containers/com.microsoft.Outlook/Data/", "");
    bool exists = helper.IsAppExist(fourthPath);
    logFourth(fourthPath, exists);
    return {Candidate::userApplications, fourthPath, thirdPath, exists};
}

}  // namespace

bool ymAppHelper::IsAppExist(const std::optional<std::string> &path)
{
    if (!path)
        return false;
    return ymWorkspace::isFilePackageAtPath(*path);
}

std::optional<std::string> ymAppHelper::getYumoappLaunchPath(BOOL *exists)
{
    std::string installPath = getYumoClientInstallPath();
    std::optional<std::string> executable = ymBundle::executablePath(installPath);
    if (exists)
        *exists = IsAppExist(installPath) ? YES : NO;
    return executable;
}

bool ymAppHelper::isYumoappInstalled()
{
    BOOL exists = NO;
    getYumoappLaunchPath(&exists);
    return exists == YES;
}

bool ymAppHelper::isYumoRunning()
{
    return ymWorkspace::isApplicationRunning(getYumoappIdentifier());
}

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
    ymPropertyList::Node root = ymPropertyList::readFile(*filePath);
    if (!root || plist_get_node_type(root.get()) != PLIST_DICT)
        return std::nullopt;
    plist_t value = plist_dict_get_item(root.get(), key->c_str());
    if (!value)
        return std::nullopt;
    return ymValueJSON::fromJSON(ymPropertyList::toJSON(value));
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
