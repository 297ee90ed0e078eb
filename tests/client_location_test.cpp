// Finding the meeting client, its version gates and its status codes, with real bundles and
// processes under a temporary $HOME.
#include <YumoClientSdk/ymAPIErrorMgr.h>
#include <YumoClientSdk/ymAppHelper.h>
#include <YumoClientSdk/ymClientFeatureMgr.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/ymPropertyList.h"
#include "support/Processes.h"
#include "support/TestSupport.h"

namespace {

const char *const kIdentifier = "com.yumocorp.yumoapp";

class ClientLocation : public ::testing::Test {
protected:
    void SetUp() override
    {
        // The system Applications folder is moved into the test's own folder.
        savedSystemPath = kYumoappAppLaunchPath;
        systemApplications = home.path() + "/SystemApplications";
        systemFormat = systemApplications + "/%@";
        kYumoappAppLaunchPath = systemFormat.c_str();
    }
    void TearDown() override { kYumoappAppLaunchPath = savedSystemPath; }

    ymAppHelper &helper() { return *ymAppHelper::sharedInstance(); }
    std::string userApplications() const { return home.path() + "/Applications"; }

    void registerInstallPath(const std::string &path)
    {
        std::filesystem::create_directories(home.path() + "/Library/Preferences");
        ymPropertyList::Node domain(plist_new_dict());
        plist_dict_set_item(domain.get(), "installPath", plist_new_string(path.c_str()));
        ymtest::writeFile(home.path() + "/Library/Preferences/com.yumocorp.yumoapp.plist",
                          ymPropertyList::serialize(domain.get(), true));
    }

    ymtest::TemporaryHome home;
    std::string systemApplications;
    std::string systemFormat;
    const char *savedSystemPath = nullptr;
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
    registerInstallPath(registered);
    EXPECT_EQ(helper().getYumoClientInstallPath(), registered);

    // A registered path that no longer exists is passed over.
    std::filesystem::remove_all(registered);
    EXPECT_EQ(helper().getYumoClientInstallPath(), system);
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

TEST_F(ClientLocation, OnlyAFolderThatIsAPackagePasses)
{
    std::filesystem::create_directories(userApplications());
    ymtest::writeFile(userApplications() + "/yumoapp.app", "a plain file");
    EXPECT_FALSE(helper().IsAppExist(userApplications() + "/yumoapp.app"));
    EXPECT_FALSE(helper().isYumoappInstalled());
    std::filesystem::create_directories(home.path() + "/plain-folder");
    EXPECT_FALSE(helper().IsAppExist(home.path() + "/plain-folder"));
    EXPECT_FALSE(helper().IsAppExist(std::nullopt));
    std::filesystem::create_directories(home.path() + "/x.bundle");
    EXPECT_TRUE(helper().IsAppExist(home.path() + "/x.bundle"));
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
        EXPECT_EQ(errors.checkYumoAppError(), 0);
        EXPECT_EQ(errors.errorCode(), 0);
        EXPECT_EQ(errors.to3rdClientErrorStr(), "");
    }
    EXPECT_EQ(errors.checkYumoAppError(), 5);

    // Codes set by a caller.
    const std::pair<int32_t, const char *> texts[] = {
        {2, "0:Error YumoClientNotInstall"}, {6, "0:Error YumoClientNoSupportedVersion"},
        {7, "0:Error YumoClientNotSignIn"},  {8, ""},
        {1, ""},                             {-5, ""},
    };
    for (const auto &[code, text] : texts) {
        errors.setErrorCode(code);
        EXPECT_EQ(errors.to3rdClientErrorStr(), text) << code;
    }
}

TEST_F(ClientLocation, AnotherUsersApplicationsDoNotRun)
{
    if (getuid() != 0)
        GTEST_SKIP() << "starting a process of another user needs root";
    // The meeting client and Outlook, installed here and started by another user (nobody).
    ASSERT_EQ(chmod(home.path().c_str(), 0755), 0);
    std::string client = ymtest::makeAppBundle(userApplications(), "yumoapp.app", kIdentifier, "5.6.0");
    std::string outlook = ymtest::makeAppBundle(userApplications(), "Microsoft Outlook.app", "com.microsoft.Outlook", "16.0",
                                                "Microsoft Outlook");
    auto startAsNobody = [](const std::string &executable) {
        return std::make_unique<ymtest::ChildProcess>(
            "/usr/bin/setpriv", std::vector<std::string>{"--reuid=65534", "--regid=65534", "--clear-groups", executable, "300"});
    };
    auto runs = [](const ymtest::ChildProcess &process, const std::string &executable) {
        std::error_code error;
        return std::filesystem::read_symlink("/proc/" + std::to_string(process.pid()) + "/exe", error).string() == executable;
    };
    std::string clientExecutable = client + "/Contents/MacOS/yumoapp";
    std::string outlookExecutable = outlook + "/Contents/MacOS/Microsoft Outlook";
    auto clientProcess = startAsNobody(clientExecutable);
    auto outlookProcess = startAsNobody(outlookExecutable);
    ASSERT_TRUE(ymtest::eventually([&] { return runs(*clientProcess, clientExecutable) && runs(*outlookProcess, outlookExecutable); }));

    EXPECT_FALSE(helper().isYumoRunning());
    EXPECT_EQ(ymAPIErrorMgr::sharedInstance()->checkYumoAppError(), 5);
    EXPECT_FALSE(helper().isOutlookRunning());
    EXPECT_FALSE(helper().isAppRunningWithBundleIdentifier(std::string(kIdentifier)));

    // The same applications started by this user do run.
    ymtest::ChildProcess ownClient(clientExecutable, {"300"});
    ymtest::ChildProcess ownOutlook(outlookExecutable, {"300"});
    ASSERT_TRUE(ymtest::eventually([&] { return helper().isYumoRunning() && helper().isOutlookRunning(); }));
    EXPECT_EQ(ymAPIErrorMgr::sharedInstance()->checkYumoAppError(), 0);
}

}  // namespace
