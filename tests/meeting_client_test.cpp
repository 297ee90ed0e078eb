// The meeting client and the applications around it, with real bundles and processes under a
// temporary $HOME (and a private session bus where notifications are posted): finding the client,
// its version gates and status codes; launching and activating it; bundle identifiers, Outlook,
// the OS and the system language.
#include <YumoClientSdk/ymAPIErrorMgr.h>
#include <YumoClientSdk/ymAppHelper.h>
#include <YumoClientSdk/ymClientFeatureMgr.h>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/ymBundle.h"
#include "platform/ymGestalt.h"
#include "platform/ymNotificationCenter.h"
#include "platform/ymProcessTable.h"
#include "platform/ymPropertyList.h"
#include "platform/ymWorkspace.h"
#include "support/FacadeFixture.h"
#include "support/Processes.h"
#include "support/TestSupport.h"

namespace {

const char *const kIdentifier = "com.yumocorp.yumoapp";

ymAppHelper &helper() { return *ymAppHelper::sharedInstance(); }

class ClientLocation : public ::testing::Test {
protected:
    // The system Applications folder is moved into the test's own folder.
    void SetUp() override { kYumoappAppLaunchPath = systemFormat.c_str(); }
    void TearDown() override { kYumoappAppLaunchPath = savedSystemPath; }

    std::string userApplications() const { return home.path() + "/Applications"; }

    ymtest::TemporaryHome home;
    std::string systemApplications = home.path() + "/SystemApplications";
    std::string systemFormat = systemApplications + "/%@";
    const char *savedSystemPath = kYumoappAppLaunchPath;
};

TEST_F(ClientLocation, EachOfTheFourCandidatesIsFoundInTurn)
{
    ymtest::CapturedStderr log;
    // Nothing anywhere: the fourth path comes back all the same, and it is not installed.
    EXPECT_EQ(helper().getYumoClientInstallPath(), userApplications() + "/yumoapp.app");
    EXPECT_FALSE(helper().isYumoappInstalled());
    BOOL exists = YES;
    EXPECT_FALSE(helper().getYumoappLaunchPath(&exists).has_value());
    EXPECT_EQ(exists, NO);
    std::string third = home.path() + "/Library/Application Support/yumoapp/yumoapp.app";
    EXPECT_NE(log.text().find("-[ymAppHelper getYumoClientInstallPath]: filePath = " + third), std::string::npos);
    EXPECT_NE(log.text().find(") Failed to get 3rd path: " + third), std::string::npos);
    EXPECT_NE(log.text().find(") Failed to get 4th path: " + userApplications() + "/yumoapp.app"), std::string::npos);
    // Only a folder that is a package passes.
    std::filesystem::create_directories(userApplications());
    ymtest::writeFile(userApplications() + "/yumoapp.app", "a plain file");
    EXPECT_FALSE(helper().IsAppExist(userApplications() + "/yumoapp.app"));
    EXPECT_FALSE(helper().isYumoappInstalled());
    EXPECT_FALSE(helper().IsAppExist(home.path()));
    EXPECT_FALSE(helper().IsAppExist(std::nullopt));
    std::filesystem::remove(userApplications() + "/yumoapp.app");

    // Fourth: the user's Applications folder.
    std::string fourth = ymtest::makeAppBundle(userApplications(), "yumoapp.app", kIdentifier, "5.6.0");
    EXPECT_EQ(helper().getYumoClientInstallPath(), fourth);
    EXPECT_NE(log.text().find(") Success to get 4th path: " + fourth), std::string::npos);
    EXPECT_EQ(helper().getYumoappLaunchPath(&exists), fourth + "/Contents/MacOS/yumoapp");
    EXPECT_EQ(exists, YES);
    EXPECT_TRUE(helper().isYumoappInstalled());

    // Third: the client's own copy under Application Support wins over the fourth.
    std::string own = ymtest::makeAppBundle(home.path() + "/Library/Application Support/yumoapp", "yumoapp.app",
                                            kIdentifier, "5.6.0");
    EXPECT_EQ(helper().getYumoClientInstallPath(), own);

    // Second: the system Applications folder.
    std::string system = ymtest::makeAppBundle(systemApplications, "yumoapp.app", kIdentifier, "5.6.0");
    EXPECT_EQ(helper().getYumoClientInstallPath(), system);

    // First: the path registered in the client's defaults domain.
    std::string registered = ymtest::makeAppBundle(home.path() + "/Elsewhere", "yumoapp.app", kIdentifier, "5.6.0");
    std::filesystem::create_directories(home.path() + "/Library/Preferences");
    ymValue domain = ymValue::dictionary({{"installPath", registered + "/"}});  // binary, as the client writes it
    ymtest::writeFile(home.path() + "/Library/Preferences/com.yumocorp.yumoapp.plist", ymPropertyList::serialize(domain, true));
    EXPECT_EQ(helper().getYumoClientInstallPath(), registered + "/");
    EXPECT_EQ(helper().getYumoappLaunchPath(&exists), registered + "/Contents/MacOS/yumoapp");

    // A registered path that no longer exists is passed over.
    std::filesystem::remove_all(registered);
    EXPECT_EQ(helper().getYumoClientInstallPath(), system);
    std::filesystem::create_directories(home.path() + "/x.bundle");
    EXPECT_TRUE(helper().IsAppExist(home.path() + "/x.bundle"));

    // A home given with a "/" at its end names the same folders.
    setenv("HOME", (home.path() + "/").c_str(), 1);
    EXPECT_EQ(helper().getYumoappUserAppPath(), home.path() + "/Applications/yumoapp.app");
}

TEST_F(ClientLocation, ThirdCandidateIsFoundFromInsideOutlooksContainer)
{
    // Inside Outlook's sandbox the home folder is Outlook's container; the client's own copy is
    // in the real Library, and the user's Applications folder is the real one.
    std::string real = home.path();
    std::string container = real + "/Library/Containers/com.microsoft.Outlook/Data";
    std::filesystem::create_directories(container);
    setenv("HOME", container.c_str(), 1);
    EXPECT_EQ(helper().getYumoClientInstallPath(), real + "/Applications/yumoapp.app");

    std::string own = ymtest::makeAppBundle(real + "/Library/Application Support/yumoapp", "yumoapp.app", kIdentifier, "6.0");
    EXPECT_EQ(helper().getYumoClientInstallPath(), own);
    EXPECT_EQ(ymClientFeatureMgr::getYumoClientVersion(), "6.0");
}

TEST_F(ClientLocation, AnswersAreFreshBetweenTwoCalls)
{
    std::string bundle = ymtest::makeAppBundle(userApplications(), "yumoapp.app", kIdentifier, "5.5.0");
    ymClientFeatureMgr &features = *ymClientFeatureMgr::sharedInstance();
    EXPECT_FALSE(helper().isYumoRunning());  // the process table is read and kept from here on

    // Started and quit between two calls: each seen by the very next call, without waiting.
    auto client = std::make_unique<ymtest::ChildProcess>(bundle + "/Contents/MacOS/yumoapp", std::vector<std::string>{"300"});
    EXPECT_TRUE(helper().isYumoRunning());
    kYumoappIdentify = "com.example.other";  // a process of another bundle does not count
    EXPECT_FALSE(helper().isYumoRunning());
    kYumoappIdentify = kIdentifier;
    client.reset();  // killed and reaped
    EXPECT_FALSE(helper().isYumoRunning());

    // A process that execs the client shortly after it started is seen once it has.
    ymtest::ChildProcess wrapper("/bin/sh", {"-c", "sleep 0.3; exec '" + bundle + "/Contents/MacOS/yumoapp' 300"});
    EXPECT_FALSE(helper().isYumoRunning());
    EXPECT_TRUE(ymtest::eventually([&] { return helper().isYumoRunning(); }));

    // The bundle replaced, then removed: the next call sees each.
    EXPECT_FALSE(features.isYumoClientSupportNewIPC());
    std::filesystem::remove_all(bundle);
    ymtest::makeAppBundle(userApplications(), "yumoapp.app", kIdentifier, "5.6.0");
    EXPECT_TRUE(features.isYumoClientSupportNewIPC());
    ymtest::makeAppBundle(userApplications(), "yumoapp.app", kIdentifier, "5.6.1");  // rewritten in place
    EXPECT_EQ(ymClientFeatureMgr::getYumoClientVersion(), "5.6.1");
    std::filesystem::remove_all(bundle);
    EXPECT_FALSE(helper().isYumoappInstalled());
    EXPECT_EQ(ymClientFeatureMgr::getYumoClientVersion(), "");
}

TEST_F(ClientLocation, VersionGatesCompareUnsigned)
{
    struct Case {
        std::optional<std::string> version;
        bool supported;
        bool newIPC;
    };
    const Case cases[] = {
        {std::nullopt, false, false}, {"", false, false},        {"4.1.9", false, false},
        {"4.1.99", false, false},     {"4.2", true, false},       {"4.10.0", true, false},
        {"5", true, false},           {"5.5", true, false},       {"5.5.12345", true, false},
        {"5.6", true, true},          {"5.6.0", true, true},      {"6", true, true},
        {"6.0", true, true},          {"10", true, true},         {"-1.0", true, true},
        {"abc", false, false},        {"4.-1", true, false},      {"5.-3", true, true},
    };
    ymClientFeatureMgr &features = *ymClientFeatureMgr::sharedInstance();
    for (const Case &c : cases) {
        std::filesystem::remove_all(userApplications());
        ymtest::makeAppBundle(userApplications(), "yumoapp.app", kIdentifier, c.version);
        std::string shown = c.version.value_or("(none)");
        EXPECT_EQ(ymClientFeatureMgr::getYumoClientVersion(), c.version.value_or("")) << shown;
        EXPECT_EQ(features.isSupportedYumoClientVersion(), c.supported) << shown;
        EXPECT_EQ(features.isYumoClientSupportNewIPC(), c.newIPC) << shown;
    }

    ymtest::CapturedStderr log;
    features.isYumoClientSupportNewIPC();  // the last bundle: 5.-3
    std::filesystem::remove_all(userApplications());
    features.isSupportedYumoClientVersion();
    EXPECT_NE(log.text().find("-[ymClientFeatureMgr isYumoClientSupportNewIPC]: Yumo Video Client verison is 5.-3"), std::string::npos);
    EXPECT_NE(log.text().find("-[ymClientFeatureMgr isSupportedYumoClientVersion]: Error! Cannot read yumo client version."), std::string::npos);
}

TEST_F(ClientLocation, StatusCodesInEachState)
{
    ymAPIErrorMgr &errors = *ymAPIErrorMgr::sharedInstance();
    EXPECT_EQ(errors.errorCode(), 0);  // before any check
    // Not installed at all: reported as not running, never as "not installed".
    EXPECT_EQ(errors.getYumoAppStatus(), 1);
    EXPECT_EQ(errors.checkYumoAppError(), 5);
    EXPECT_EQ(errors.to3rdClientErrorStr(), "0:Error YumoClientNotRunning");

    // Installed, not running.
    std::string bundle = ymtest::makeAppBundle(userApplications(), "yumoapp.app", kIdentifier, "4.1");
    EXPECT_EQ(errors.checkYumoAppError(), 5);

    // Running, even though too old: no error.
    {
        ymtest::ChildProcess client(bundle + "/Contents/MacOS/yumoapp", {"300"});
        ASSERT_TRUE(ymtest::eventually([&] { return errors.getYumoAppStatus() == 2; }));
        // An upgrade replaces the executable while it runs: the process runs on, "(deleted)".
        std::filesystem::remove(bundle + "/Contents/MacOS/yumoapp");
        std::filesystem::copy_file("/bin/sleep", bundle + "/Contents/MacOS/yumoapp");
        EXPECT_EQ(errors.checkYumoAppError(), 0);
        EXPECT_EQ(errors.errorCode(), 0);
        EXPECT_EQ(errors.to3rdClientErrorStr(), "");
    }
    EXPECT_EQ(errors.checkYumoAppError(), 5);

    // Codes set by a caller.
    const std::pair<int32_t, const char *> texts[] = {{2, "0:Error YumoClientNotInstall"}, {6, "0:Error YumoClientNoSupportedVersion"},
                                                       {7, "0:Error YumoClientNotSignIn"},  {8, ""}, {1, ""}, {-5, ""}};
    for (const auto &[code, text] : texts) {
        errors.setErrorCode(code);
        EXPECT_EQ(errors.to3rdClientErrorStr(), text) << code;
    }
}

TEST_F(ClientLocation, AnotherUsersClientDoesNotRun)
{
    if (getuid() != 0)
        GTEST_SKIP() << "starting a process of another user needs root";
    // The meeting client, installed here and started by another user (nobody). (Outlook and any
    // other application are judged by the same look-up.)
    ASSERT_EQ(chmod(home.path().c_str(), 0755), 0);
    std::string executable = ymtest::makeAppBundle(userApplications(), "yumoapp.app", kIdentifier, "5.6.0") + "/Contents/MacOS/yumoapp";
    ymtest::ChildProcess nobodys("/usr/bin/setpriv", {"--reuid=65534", "--regid=65534", "--clear-groups", executable, "300"});
    ASSERT_TRUE(ymtest::eventuallyRuns(nobodys.pid(), executable));
    EXPECT_FALSE(helper().isYumoRunning());
    EXPECT_FALSE(helper().isAppRunningWithBundleIdentifier(std::string(kIdentifier)));
    EXPECT_EQ(ymAPIErrorMgr::sharedInstance()->checkYumoAppError(), 5);

    // Started by this user, it does run.
    ymtest::ChildProcess own(executable, {"300"});
    ASSERT_TRUE(ymtest::eventually([&] { return helper().isYumoRunning(); }));
    EXPECT_EQ(ymAPIErrorMgr::sharedInstance()->checkYumoAppError(), 0);
}

TEST_F(ClientLocation, FilePackagesAndTheProcessesOfABundle)
{
    // A folder is a file package by a known extension alone: not any dot, not a leading one, not a file.
    const std::string folder = home.path();
    for (const char *name : {"a.app", "b.bundle", "c.framework", "d.plugin", "e.pkg", "notes.d", "photos.2024", "f.apps",
                             "g.xapp", ".app", "h"})
        ASSERT_TRUE(std::filesystem::create_directory(folder + "/" + name)) << name;
    ymtest::writeFile(folder + "/file.app", "a file");
    for (const char *name : {"a.app", "b.bundle", "c.framework", "d.plugin", "e.pkg", "a.app/"})
        EXPECT_TRUE(ymWorkspace::isFilePackageAtPath(folder + "/" + name)) << name;
    for (const char *name : {"notes.d", "photos.2024", "f.apps", "g.xapp", ".app", "h", "file.app", "missing.app"})
        EXPECT_FALSE(ymWorkspace::isFilePackageAtPath(folder + "/" + name)) << name;
    // So Outlook in a folder of another extension is not there.
    ymtest::makeAppBundle(userApplications(), "Microsoft Outlook.d", "com.microsoft.Outlook", "16.0");
    EXPECT_FALSE(helper().isOutlookInstalled());

    // The client runs only as the executable directly in its Contents/MacOS: not from elsewhere in
    // the bundle, nor as a bundle nested in it.
    const std::string bundle = ymtest::makeAppBundle(userApplications(), "yumoapp.app", kIdentifier, "5.6.0");
    const std::string nested = ymtest::makeAppBundle(bundle + "/Contents/Helpers", "Helper.app", "com.example.helper", "1");
    for (const std::string &elsewhere : {bundle + "/Contents/Resources/yumoapp", bundle + "/Contents/MacOS/bin/yumoapp",
                                         bundle + "/yumoapp", nested + "/Contents/MacOS/yumoapp"}) {
        std::filesystem::create_directories(std::filesystem::path(elsewhere).parent_path());
        std::filesystem::copy_file("/bin/sleep", elsewhere, std::filesystem::copy_options::overwrite_existing);
        ymtest::ChildProcess process(elsewhere, {"300"});
        ASSERT_TRUE(ymtest::eventuallyRuns(process.pid(), elsewhere));
        EXPECT_FALSE(helper().isYumoRunning()) << elsewhere;
    }
    ymtest::ChildProcess client(bundle + "/Contents/MacOS/yumoapp", {"300"});
    EXPECT_TRUE(ymtest::eventually([&] { return helper().isYumoRunning(); }));
    // The folder itself is no executable of the bundle; the innermost bundle is the one.
    EXPECT_EQ(ymBundle::bundlePathOfExecutable("/A.app/Contents/MacOS/"), std::nullopt);
    EXPECT_EQ(ymBundle::bundlePathOfExecutable("/A.app/Contents/MacOS/B.app/Contents/MacOS/b"), "/A.app/Contents/MacOS/B.app");
}

// Runs `scenario` as the first process of a pid namespace of its own, with a /proc of that
// namespace; answers its exit status, or nothing where such a namespace cannot be made (it needs
// root). The namespace ends with the scenario, and its processes with it.
std::optional<int> inNewPidNamespace(const std::function<int()> &scenario)
{
    pid_t outer = fork();
    if (outer == 0) {
        if (unshare(CLONE_NEWPID | CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            _exit(77);
        pid_t first = fork();
        if (first == 0) {
            if (mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0)
                _exit(77);
            _exit(scenario());
        }
        int status = 0;
        if (first < 0 || waitpid(first, &status, 0) != first)
            _exit(78);
        _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 79);
    }
    int status = 0;
    if (outer < 0 || waitpid(outer, &status, 0) != outer || !WIFEXITED(status))
        return 80;
    if (WEXITSTATUS(status) == 77)
        return std::nullopt;
    return WEXITSTATUS(status);
}

TEST_F(ClientLocation, AClientStartedAfterThePidCounterWrappedRuns)
{
    // The kernel hands out pids upwards and starts again from the bottom at its limit; a process
    // with a pid below those seen before is new all the same.
    const std::string executable =
        ymtest::makeAppBundle(userApplications(), "yumoapp.app", kIdentifier, "5.6.0") + "/Contents/MacOS/yumoapp";
    std::optional<int> failedStep = inNewPidNamespace([&] {
        auto nextPidAfter = [](long last) {
            FILE *counter = std::fopen("/proc/sys/kernel/ns_last_pid", "w");
            return counter && std::fprintf(counter, "%ld", last) > 0 && std::fclose(counter) == 0;
        };
        auto startedAndRunning = [&](long last) {
            ymtest::ChildProcess client(executable, {"300"});
            if (client.pid() != last + 1)
                return false;
            ymtest::eventuallyRuns(client.pid(), executable);
            for (const ymProcessTable::Process &process : ymProcessTable::applicationProcesses())
                if (process.pid == client.pid())
                    return process.executable == executable;
            return false;
        };
        if (!nextPidAfter(30000))
            return 77;
        if (!startedAndRunning(30000))
            return 1;
        if (!nextPidAfter(100))
            return 2;
        return startedAndRunning(100) ? 0 : 3;
    });
    if (!failedStep)
        GTEST_SKIP() << "no pid namespace of our own here (needs root)";
    EXPECT_EQ(failedStep, 0);
}

// The processes running from a bundle.
std::vector<pid_t> processesOf(const std::string &bundle)
{
    std::vector<pid_t> found;
    for (const ymWorkspace::RunningApplication &application : ymWorkspace::runningApplications())
        if (application.bundlePath == bundle)
            found.push_back(application.pid);
    return found;
}

class ClientLaunch : public ymtest::SessionTest {
protected:
    void TearDown() override
    {
        for (const std::string &bundle : launched)
            for (pid_t pid : processesOf(bundle))
                kill(pid, SIGKILL);
    }
    // Counts the notifications of a name from now on.
    std::shared_ptr<std::vector<ymNotificationCenter::UserInfo>> observe(const std::string &name)
    {
        auto seen = std::make_shared<std::vector<ymNotificationCenter::UserInfo>>();
        ymNotificationCenter::defaultCenter().addObserver(
            name, [seen](const std::string &, const ymNotificationCenter::UserInfo &info) { seen->push_back(info); });
        return seen;
    }
    // Posts a marker and runs the loop until it is back: whatever was posted before it has arrived.
    void drainNotifications()
    {
        auto marker = observe("TestMarker");
        ymNotificationCenter::defaultCenter().post("TestMarker", std::nullopt);
        ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return !marker->empty(); }));
    }
    std::vector<std::string> launched;
};

TEST_F(ClientLaunch, LaunchStartsTheClientOnceThenActivatesIt)
{
    auto activations = observe("Noti_ActivateYumoApplicationExternally");
    auto silent = observe("Noti_SilentActiveYumoApp");
    ymtest::CapturedStderr log;
    // Not installed: nothing is started and nothing posted.
    EXPECT_FALSE(helper().LaunchYumoClient());
    EXPECT_NE(log.text().find("Error, (null) does not exist, quit!"), std::string::npos);
    helper().silentActiveYumoClient();  // posts only while the client runs, and never starts it
    EXPECT_NE(log.text().find("-[ymAppHelper silentActiveYumoClient]: yumoapp is not running!"), std::string::npos);

    ymtest::ChildProcess install(ymtest::toolProgram("ymsim"), {"install", "--version", "5.6.0"});
    ASSERT_EQ(install.wait(), 0);
    std::string bundle = home.path() + "/Applications/yumoapp.app";
    launched.push_back(bundle);
    EXPECT_TRUE(helper().LaunchYumoClient());
    ASSERT_TRUE(ymtest::eventually([&] { return helper().isYumoRunning(); }));
    ASSERT_EQ(processesOf(bundle).size(), 1u);
    EXPECT_NE(getsid(processesOf(bundle)[0]), getsid(0));  // in a session of its own, not the companion's

    // Running: activated with the launch URL, not launched again, and the answer is NO.
    EXPECT_FALSE(helper().LaunchYumoClient());
    drainNotifications();
    ASSERT_EQ(activations->size(), 1u);
    EXPECT_EQ((*activations)[0], (ymNotificationCenter::UserInfo{
                                     {"Param_ActivateYumoApplicationExternally", "yumoconf://meet.yumocorp.com/start"}}));
    EXPECT_EQ(processesOf(bundle).size(), 1u);

    helper().silentActiveYumoClient();
    drainNotifications();
    ASSERT_EQ(silent->size(), 1u);  // the one made while the client runs
    EXPECT_TRUE((*silent)[0].empty());
    std::string text = log.text();
    EXPECT_NE(text.find("-[ymAppHelper silentActiveYumoClient]: yumoapp is already running"), std::string::npos);
    EXPECT_NE(text.find(") yumoapp is already running\n"), std::string::npos);
    EXPECT_NE(text.find("-[ymAppHelper LaunchYumoClient]: launchPath = " + bundle +
                        "/Contents/MacOS/yumoapp, param = yumoconf://meet.yumocorp.com/start"),
              std::string::npos);
}

TEST_F(ClientLaunch, BundleIdentifierIsRewrittenKeepingTheFormat)
{
    if (access("/usr/libexec/PlistBuddy", X_OK) != 0)
        GTEST_SKIP() << "/usr/libexec/PlistBuddy is not installed (the build installs it as root)";
    for (bool binary : {false, true}) {
        std::string bundle = ymtest::makeAppBundle(home.path() + (binary ? "/bin" : "/xml") + " folder", "My App.app",
                                                   "com.example.before", "1.0", "app", "/bin/sleep", binary);
        std::string info = bundle + "/Contents/Info.plist";
        EXPECT_TRUE(helper().modifyBundleIdentify(info, std::string("com.example.after")));
        bool wasBinary = !binary;
        std::optional<ymValue> plist = ymPropertyList::readFile(info, &wasBinary);
        EXPECT_EQ(wasBinary, binary);
        EXPECT_EQ(ymPropertyList::textForKey(plist ? &*plist : nullptr, "CFBundleIdentifier"), "com.example.after");
        EXPECT_EQ(ymPropertyList::textForKey(plist ? &*plist : nullptr, "CFBundleVersion"), "1.0");  // the rest is kept
    }
    ymtest::CapturedStderr log;
    EXPECT_FALSE(helper().modifyBundleIdentify(home.path() + "/missing.plist", std::string("x")));
    EXPECT_NE(log.text().find("-[ymAppHelper modifyBundleIdentify:identifyName:]: " + home.path() + "/missing.plist is not existed!"),
              std::string::npos);
    ymtest::writeFile(home.path() + "/junk.plist", "not a property list");
    EXPECT_FALSE(helper().modifyBundleIdentify(home.path() + "/junk.plist", std::string("x")));
    EXPECT_NE(log.text().find("-[ymAppHelper modifyBundleIdentify:identifyName:]: failed!"), std::string::npos);
    EXPECT_FALSE(helper().modifyBundleIdentify(std::nullopt, std::string("x")));
}

TEST_F(ClientLaunch, OutlookIsFoundByIdentifierAndItsVersionJudged)
{
    ymtest::CapturedStderr log;
    // A hidden folder in Applications is passed over.
    ymtest::makeAppBundle(home.path() + "/Applications", ".Outlook.app", "com.microsoft.Outlook", "16.0");
    EXPECT_FALSE(helper().isOutlookInstalled());
    EXPECT_FALSE(helper().OutlookVersion().has_value());
    EXPECT_FALSE(helper().isSupportedOutlookVersion());
    EXPECT_FALSE(helper().launchOutlookApp());
    EXPECT_NE(log.text().find("-[ymAppHelper OutlookVersion]: bundlePath [(null)], shortVersion [(null)]"), std::string::npos);

    const std::pair<const char *, bool> cases[] = {{"14.1.3", false}, {"14.1.4", true},  {"14.2", true},  {"14", false},
                                                   {"15", true},      {"16.78.1", true}, {"13.9.9", false}, {"abc", false},
                                                   {"14.0.9", false}, {"14.-1.9", false}};
    std::string bundle = ymtest::makeAppBundle(home.path() + "/Applications", "Microsoft Outlook.app", "com.microsoft.Outlook", "1");
    for (auto [version, supported] : cases) {
        ymValue info = ymValue::dictionary({{"CFBundleIdentifier", "com.microsoft.Outlook"}, {"CFBundleExecutable", "yumoapp"},
                                            {"CFBundleVersion", "1"}, {"CFBundleShortVersionString", version}});
        ymtest::writeFile(bundle + "/Contents/Info.plist", ymPropertyList::serialize(info, true));
        EXPECT_TRUE(helper().isOutlookInstalled());
        EXPECT_EQ(helper().OutlookVersion(), version);
        EXPECT_EQ(helper().isSupportedOutlookVersion(), supported) << version;
    }
    EXPECT_EQ(helper().objectForPropertyListKey(std::string("CFBundleIdentifier"), bundle + "/Contents/Info.plist"),
              ymValue("com.microsoft.Outlook"));
    EXPECT_FALSE(helper().objectForPropertyListKey(std::string("Missing"), bundle + "/Contents/Info.plist").has_value());
    EXPECT_FALSE(helper().objectForPropertyListKey(std::string("CFBundleIdentifier"), home.path() + "/nothing.plist").has_value());

    // Running and launching go by the identifier too.
    EXPECT_FALSE(helper().isOutlookRunning());
    {
        ymtest::ChildProcess outlook(bundle + "/Contents/MacOS/yumoapp", {"300"});
        ASSERT_TRUE(ymtest::eventually([&] { return helper().isOutlookRunning(); }));
        EXPECT_TRUE(helper().launchOutlookApp());  // already running: brought forward
    }
    EXPECT_FALSE(helper().isOutlookRunning());
    launched.push_back(bundle);
    EXPECT_TRUE(helper().launchOutlookApp());  // sleep with no operand: starts, and ends at once
}

TEST_F(ClientLaunch, OSVersionThresholdThroughGestalt)
{
    EXPECT_EQ(helper().macOSVersion(), 0);  // this platform has no Gestalt
    EXPECT_FALSE(helper().isSupportedOSVersion());
    int32_t answer = 0;
    ymGestalt::setResponderForTesting([&answer](uint32_t selector, int32_t *response) -> int16_t {
        *response = answer;
        return selector == ymGestalt::kSystemVersionSelector ? 0 : ymGestalt::kUndefinedSelectorError;
    });
    for (int32_t version : {0x1060, 0x1061, -1}) {
        answer = version;
        EXPECT_EQ(helper().macOSVersion(), version);
        EXPECT_EQ(helper().isSupportedOSVersion(), version == 0x1061) << version;  // compared signed
    }
    ymGestalt::setResponderForTesting(nullptr);
    EXPECT_EQ(helper().macOSVersion(), 0);
}

TEST_F(ClientLaunch, SystemLanguageFromTheGlobalDomainOrTheLocale)
{
    setenv("LANG", "de_DE.UTF-8", 1);
    EXPECT_EQ(helper().getSystemLanguage(), "de-DE");
    setenv("LANGUAGE", "pt_BR:en", 1);
    EXPECT_EQ(helper().getSystemLanguage(), "pt-BR");
    unsetenv("LANGUAGE");
    for (const char *silent : {"C", "POSIX"}) {
        setenv("LANG", silent, 1);
        EXPECT_FALSE(helper().getSystemLanguage().has_value()) << silent;
    }

    std::filesystem::create_directories(home.path() + "/Library/Preferences");
    ymtest::writeFile(home.path() + "/Library/Preferences/.GlobalPreferences.plist",
                      "<plist><dict><key>AppleLanguages</key><array><string>fr-CA</string><string>en</string></array></dict></plist>");
    EXPECT_EQ(helper().getSystemLanguage(), "fr-CA");
}

}  // namespace
