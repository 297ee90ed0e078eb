// Launching and activating the meeting client, bundle identifiers, Outlook and the OS, with real
// bundles and processes under a temporary $HOME and a private session bus.
#include <YumoClientSdk/ymAppHelper.h>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>

#include "platform/ymBundle.h"
#include "platform/ymGestalt.h"
#include "platform/ymNotificationCenter.h"
#include "platform/ymPropertyList.h"
#include "platform/ymWorkspace.h"
#include "support/Processes.h"
#include "support/TestSupport.h"

namespace {

const char *const kIdentifier = "com.yumocorp.yumoapp";

// The processes running from a bundle.
std::vector<pid_t> processesOf(const std::string &bundle)
{
    std::vector<pid_t> found;
    for (const ymWorkspace::RunningApplication &application : ymWorkspace::runningApplications())
        if (application.bundlePath == bundle)
            found.push_back(application.pid);
    return found;
}

class ClientLaunch : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!ymNotificationCenter::defaultCenter().isConnected())
            GTEST_SKIP() << "no session bus";
    }
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
    ymAppHelper &helper() { return *ymAppHelper::sharedInstance(); }

    ymtest::TemporaryHome home;
    std::vector<std::string> launched;
};

TEST_F(ClientLaunch, LaunchStartsTheClientOnceThenActivatesIt)
{
    auto activations = observe("Noti_ActivateYumoApplicationExternally");
    ymtest::CapturedStderr log;
    // Not installed: nothing is started and nothing posted.
    EXPECT_FALSE(helper().LaunchYumoClient());
    EXPECT_NE(log.text().find("Error, (null) does not exist, quit!"), std::string::npos);

    ymtest::ChildProcess install(ymtest::toolProgram("ymsim"), {"install", "--version", "5.6.0"});
    ASSERT_EQ(install.wait(), 0);
    std::string bundle = home.path() + "/Applications/yumoapp.app";
    launched.push_back(bundle);
    EXPECT_TRUE(helper().LaunchYumoClient());
    ASSERT_TRUE(ymtest::eventually([&] { return helper().isYumoRunning(); }));
    EXPECT_EQ(processesOf(bundle).size(), 1u);

    // Running: activated with the launch URL, not launched again, and the answer is NO.
    EXPECT_FALSE(helper().LaunchYumoClient());
    drainNotifications();
    ASSERT_EQ(activations->size(), 1u);
    EXPECT_EQ((*activations)[0], (ymNotificationCenter::UserInfo{
                                     {"Param_ActivateYumoApplicationExternally", "yumoconf://meet.yumocorp.com/start"}}));
    EXPECT_EQ(processesOf(bundle).size(), 1u);
    std::string text = log.text();
    EXPECT_NE(text.find(") yumoapp is already running\n"), std::string::npos);
    EXPECT_NE(text.find("-[ymAppHelper LaunchYumoClient]: launchPath = " + bundle +
                        "/Contents/MacOS/yumoapp, param = yumoconf://meet.yumocorp.com/start"),
              std::string::npos);
}

TEST_F(ClientLaunch, SilentActivationPostsOnlyWhileTheClientRuns)
{
    auto silent = observe("Noti_SilentActiveYumoApp");
    ymtest::CapturedStderr log;
    helper().silentActiveYumoClient();
    drainNotifications();
    EXPECT_TRUE(silent->empty());
    EXPECT_FALSE(helper().isYumoRunning());  // never starts the client
    EXPECT_NE(log.text().find("-[ymAppHelper silentActiveYumoClient]: yumoapp is not running!"), std::string::npos);

    ymtest::RunningClient client = ymtest::RunningClient::silent("5.6.0");
    helper().silentActiveYumoClient();
    drainNotifications();
    ASSERT_EQ(silent->size(), 1u);
    EXPECT_TRUE((*silent)[0].empty());
    EXPECT_NE(log.text().find("-[ymAppHelper silentActiveYumoClient]: yumoapp is already running"), std::string::npos);
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
        ymPropertyList::Node plist = ymPropertyList::readFile(info, &wasBinary);
        EXPECT_EQ(wasBinary, binary);
        EXPECT_EQ(ymPropertyList::textForKey(plist.get(), "CFBundleIdentifier"), "com.example.after");
        EXPECT_EQ(ymPropertyList::textForKey(plist.get(), "CFBundleVersion"), "1.0");  // the rest is kept
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
    EXPECT_FALSE(helper().isOutlookInstalled());
    EXPECT_FALSE(helper().OutlookVersion().has_value());
    EXPECT_FALSE(helper().isSupportedOutlookVersion());
    EXPECT_FALSE(helper().launchOutlookApp());
    EXPECT_NE(log.text().find("-[ymAppHelper OutlookVersion]: bundlePath [(null)], shortVersion [(null)]"), std::string::npos);

    struct Case {
        const char *version;
        bool supported;
    };
    const Case cases[] = {{"14.1.3", false}, {"14.1.4", true}, {"14.2", true},   {"14", false},  {"15", true},
                          {"16.78.1", true}, {"13.9.9", false}, {"abc", false}, {"14.0.9", false}, {"14.-1.9", false}};
    std::string bundle;
    for (const Case &c : cases) {
        std::filesystem::remove_all(home.path() + "/Applications");
        bundle = ymtest::makeAppBundle(home.path() + "/Applications", "Microsoft Outlook.app", "com.microsoft.Outlook", "1");
        ymPropertyList::Node info = ymPropertyList::readFile(bundle + "/Contents/Info.plist");
        plist_dict_set_item(info.get(), "CFBundleShortVersionString", plist_new_string(c.version));
        ymtest::writeFile(bundle + "/Contents/Info.plist", ymPropertyList::serialize(info.get(), true));
        EXPECT_TRUE(helper().isOutlookInstalled());
        EXPECT_EQ(helper().OutlookVersion(), c.version);
        EXPECT_EQ(helper().isSupportedOutlookVersion(), c.supported) << c.version;
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
        if (selector != ymGestalt::kSystemVersionSelector)
            return ymGestalt::kUndefinedSelectorError;
        *response = answer;
        return 0;
    });
    answer = 0x1060;
    EXPECT_EQ(helper().macOSVersion(), 0x1060);
    EXPECT_FALSE(helper().isSupportedOSVersion());
    answer = 0x1061;
    EXPECT_TRUE(helper().isSupportedOSVersion());
    answer = -1;
    EXPECT_FALSE(helper().isSupportedOSVersion());  // compared signed
    ymGestalt::setResponderForTesting(nullptr);
    EXPECT_EQ(helper().macOSVersion(), 0);
}

TEST_F(ClientLaunch, SystemLanguageFromTheGlobalDomainOrTheLocale)
{
    unsetenv("LANGUAGE");
    unsetenv("LC_ALL");
    unsetenv("LC_MESSAGES");
    setenv("LANG", "de_DE.UTF-8", 1);
    EXPECT_EQ(helper().getSystemLanguage(), "de-DE");
    setenv("LANGUAGE", "pt_BR:en", 1);
    EXPECT_EQ(helper().getSystemLanguage(), "pt-BR");
    unsetenv("LANGUAGE");
    setenv("LANG", "C", 1);
    EXPECT_FALSE(helper().getSystemLanguage().has_value());

    std::filesystem::create_directories(home.path() + "/Library/Preferences");
    ymPropertyList::Node global(plist_new_dict());
    plist_t languages = plist_new_array();
    plist_array_append_item(languages, plist_new_string("fr-CA"));
    plist_array_append_item(languages, plist_new_string("en"));
    plist_dict_set_item(global.get(), "AppleLanguages", languages);
    ymtest::writeFile(home.path() + "/Library/Preferences/.GlobalPreferences.plist",
                      ymPropertyList::serialize(global.get(), false));
    EXPECT_EQ(helper().getSystemLanguage(), "fr-CA");
}

}  // namespace
