// The meeting client coming and going as a companion hears of it, with the real simulator under a
// temporary $HOME: started, quit, restarted as another version, its bundle removed while it runs;
// in C++, in C and through ymctl watch. Each change is waited for on the main loop, with no poll
// of the client's status in between. And what watching costs and needs: a busy home folder costs
// no look at the client, and a user without inotify instances still hears the client start.
#include <YumoClientSdk/ymMainLoop.h>
#include <YumoClientSdk/ymSdkC.h>
#include <YumoClientSdk/ymSdkImplement.h>
#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>
#include <unistd.h>
#include <vector>

#include "common/ymClientWatch.h"
#include "platform/ymPropertyList.h"
#include "support/FacadeFixture.h"
#include "support/Processes.h"
#include "support/TestSupport.h"

namespace {

class ClientState : public ymtest::SessionTest {
protected:
    void SetUp() override
    {
        ymtest::SessionTest::SetUp();
        if (IsSkipped())
            return;
        sdk = ymSdkImplement::SharedInstance();
        sdk->SetClientStateHandler([this](const YMClientState_s &state) { told.push_back(state); });
    }
    void TearDown() override
    {
        if (sdk)
            sdk->SetClientStateHandler(nullptr);
    }
    // Runs the main loop until a change of this kind is told after the last one waited for;
    // answers it.
    YMClientState_s waitFor(ymClientChange change, std::chrono::seconds limit = std::chrono::seconds(90))
    {
        auto next = [&] {
            return std::find_if(told.begin() + waited, told.end(), [&](auto &state) { return state.change == change; });
        };
        EXPECT_TRUE(ymtest::runMainLoopUntil([&] { return next() != told.end(); }, limit))
            << "no change " << change << " after " << toldText();
        auto found = next();
        if (found == told.end())
            return {};
        waited = found - told.begin() + 1;
        return *found;
    }
    std::string toldText() const
    {
        std::string text;
        for (const YMClientState_s &state : told)
            text += std::to_string(state.change) + (state.running ? "r " : " ");
        return text;
    }
    std::string bundle() const { return home.path() + "/Applications/yumoapp.app"; }
    // Every field of a state (C++ or C) as one text: one comparison checks them all.
    template <typename State = YMClientState_s>
    static std::string fields(const State &state)
    {
        return std::to_string(state.change) + (state.installed ? " installed" : " absent") + (state.running ? " running " : " idle ") +
               std::to_string(state.transport) + " " + state.version + " " + state.installPath;
    }

    ymSdkImplement *sdk = nullptr;
    std::vector<YMClientState_s> told;
    size_t waited = 0;
};

TEST_F(ClientState, StartQuitAndRestartAsAnotherVersionAreToldWithTheirTransport)
{
    EXPECT_EQ(fields(sdk->GetClientState()), fields({ymClientChangeNone, false, false, ymClientTransportNone, "", bundle()}));

    auto client = std::make_unique<ymtest::RunningClient>(ymtest::RunningClient::simulator("5.6.0", {"--quiet"}));
    EXPECT_EQ(fields(waitFor(ymClientChangeStarted)), fields({ymClientChangeStarted, true, true, ymClientTransportSockets, "5.6.0", bundle()}));
    EXPECT_EQ(sdk->GetIMPresenceStatus(), ymCommandStatusSent);

    client.reset();  // killed and reaped
    EXPECT_EQ(fields(waitFor(ymClientChangeQuit)), fields({ymClientChangeQuit, true, false, ymClientTransportNone, "5.6.0", bundle()}));
    EXPECT_EQ(sdk->GetIMPresenceStatus(), ymCommandStatusClientNotRunning);

    // An older client in its place speaks notifications: updated first, then started.
    client = std::make_unique<ymtest::RunningClient>(ymtest::RunningClient::simulator("5.5.0", {"--quiet"}));
    EXPECT_EQ(fields(waitFor(ymClientChangeUpdated)), fields({ymClientChangeUpdated, true, false, ymClientTransportNone, "5.5.0", bundle()}));
    EXPECT_EQ(fields(waitFor(ymClientChangeStarted)),
              fields({ymClientChangeStarted, true, true, ymClientTransportNotifications, "5.5.0", bundle()}));
    EXPECT_EQ(sdk->GetClientState().transport, ymClientTransportNotifications);

    // Once it runs again, asking costs no look: the processes of its last run are not counted.
    const uint64_t taken = ymClientWatch::snapshotsTaken();
    for (int i = 0; i < 20; ++i)
        EXPECT_TRUE(sdk->GetClientState().running);
    EXPECT_LE(ymClientWatch::snapshotsTaken() - taken, 2u);

    // Each change is told once, in the order it happened.
    std::vector<int> changes;
    for (const YMClientState_s &state : told)
        changes.push_back(state.change);
    EXPECT_EQ(changes, (std::vector<int>{ymClientChangeInstalled, ymClientChangeStarted, ymClientChangeQuit, ymClientChangeUpdated,
                                         ymClientChangeStarted}));
}

TEST_F(ClientState, BundleRemovedWhileTheClientRunsIsToldAsItsEnd)
{
    auto client = std::make_unique<ymtest::RunningClient>(ymtest::RunningClient::simulator("5.6.0", {"--quiet"}));
    waitFor(ymClientChangeStarted);
    size_t before = told.size();

    // The process goes on, but runs no meeting client's bundle any more: it quit, and the client
    // was removed, in that order; commands find no client running.
    std::filesystem::remove_all(bundle());
    EXPECT_EQ(fields(waitFor(ymClientChangeRemoved)), fields({ymClientChangeRemoved, false, false, ymClientTransportNone, "", bundle()}));
    ASSERT_EQ(told.size(), before + 2);
    EXPECT_EQ(fields(told[before]), fields({ymClientChangeQuit, true, false, ymClientTransportNone, "5.6.0", bundle()}));
    EXPECT_EQ(sdk->GetIMPresenceStatus(), ymCommandStatusClientNotRunning);

    // Installed again (its old process ended first): told, with the new version.
    client.reset();
    ymtest::ChildProcess install(ymtest::toolProgram("ymsim"), {"install", "--version", "5.6.1"});
    ASSERT_EQ(install.wait(), 0);
    EXPECT_EQ(fields(waitFor(ymClientChangeInstalled)), fields({ymClientChangeInstalled, true, false, ymClientTransportNone, "5.6.1", bundle()}));
    EXPECT_EQ(told.size(), before + 3);
}

TEST_F(ClientState, InstalledWhereItsDefaultsSayIsToldAtOnce)
{
    // The client registered the folder it lives in, with a "/" at the end as it writes it, and is
    // copied there afterwards: the folder it will be in is watched, not the once-a-minute look.
    const std::string elsewhere = home.path() + "/Elsewhere";
    std::filesystem::create_directories(elsewhere);
    std::filesystem::create_directories(home.path() + "/Library/Preferences");
    ymValue domain = ymValue::dictionary({{"installPath", elsewhere + "/yumoapp.app/"}});
    ymtest::writeFile(home.path() + "/Library/Preferences/com.yumocorp.yumoapp.plist", ymPropertyList::serialize(domain, true));
    EXPECT_FALSE(sdk->GetClientState().installed);
    ymtest::makeAppBundle(elsewhere, "yumoapp.app", "com.yumocorp.yumoapp", "5.6.2");
    EXPECT_EQ(fields(waitFor(ymClientChangeInstalled, std::chrono::seconds(20))),
              fields({ymClientChangeInstalled, true, false, ymClientTransportNone, "5.6.2", elsewhere + "/yumoapp.app/"}));
}

TEST_F(ClientState, AFolderThatKeepsChangingHoldsTheLookBackForAMomentOnly)
{
    // Something writes into ~/Applications all the time while the client is installed there: the
    // look waits for the folder to be quiet, but not for ever.
    std::filesystem::create_directories(home.path() + "/Applications");
    ymMainLoop::shared().runFor(std::chrono::seconds(1));  // the watch moves from $HOME to the folder
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        for (int i = 0; i < 1500 && !stop; ++i) {  // 30 s at most
            ymtest::writeFile(home.path() + "/Applications/noise", std::to_string(i));
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    ymtest::ChildProcess install(ymtest::toolProgram("ymsim"), {"install", "--version", "5.6.0"});
    EXPECT_EQ(install.wait(), 0);
    EXPECT_EQ(fields(waitFor(ymClientChangeInstalled, std::chrono::seconds(20))),
              fields({ymClientChangeInstalled, true, false, ymClientTransportNone, "5.6.0", bundle()}));
    stop = true;
    writer.join();
}

void recordChange(const ymClientState *state, void *context)
{
    auto *told = static_cast<std::vector<std::string> *>(context);
    told->push_back(std::to_string(state->change) + " " + std::to_string(state->transport) + " " + state->version + " " +
                    (state->running ? "running" : "not running"));
}

TEST_F(ClientState, CInterfaceTellsTheSameChangesInPlainTypes)
{
    sdk->SetClientStateHandler(nullptr);
    std::vector<std::string> told;
    ymSetClientStateCallback(recordChange, &told);
    EXPECT_FALSE(ymGetClientState(nullptr));

    auto client = std::make_unique<ymtest::RunningClient>(ymtest::RunningClient::simulator("5.6.0", {"--quiet"}));
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return told.size() >= 2; }));
    client.reset();
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return told.size() >= 3; }));
    EXPECT_EQ(told, (std::vector<std::string>{"3 0 5.6.0 not running", "1 1 5.6.0 running", "2 0 5.6.0 not running"}));

    ymClientState state;
    ASSERT_TRUE(ymGetClientState(&state));
    EXPECT_EQ(fields(state), fields({ymClientChangeNone, true, false, ymClientTransportNone, "5.6.0", bundle()}));

    ymSetClientStateCallback(nullptr, nullptr);  // no more calls
    client = std::make_unique<ymtest::RunningClient>(ymtest::RunningClient::simulator("5.6.0", {"--quiet"}));
    EXPECT_EQ(sdk->GetIMPresenceStatus(), ymCommandStatusSent);
    ymMainLoop::shared().runFor(std::chrono::milliseconds(200));
    EXPECT_EQ(told.size(), 3u);
}

TEST_F(ClientState, AStartBetweenReadingTheStateAndListeningIsToldToTheListener)
{
    // The companion reads the state, the client starts, and only then the companion listens: it
    // hears of the start all the same, measured from what it read. Its handler throws at the first
    // change: the log says so, and the rest of the batch still comes.
    auto handler = [this](const YMClientState_s &state) {
        told.push_back(state);
        if (told.size() == 1)
            throw std::runtime_error("the companion's own fault");
    };
    sdk->SetClientStateHandler(nullptr);
    EXPECT_FALSE(sdk->GetClientState().installed);
    auto client = std::make_unique<ymtest::RunningClient>(ymtest::RunningClient::simulator("5.6.0", {"--quiet"}));
    sdk->SetClientStateHandler(handler);
    EXPECT_EQ(fields(waitFor(ymClientChangeStarted, std::chrono::seconds(20))),
              fields({ymClientChangeStarted, true, true, ymClientTransportSockets, "5.6.0", bundle()}));
    EXPECT_EQ(fields(told.front()), fields({ymClientChangeInstalled, true, false, ymClientTransportNone, "5.6.0", bundle()}));
    EXPECT_NE(ymtest::readFile(home.groupContainer() + "/yumoclientsdk.log")
                  .find("ymSdkImplement: the client-state handler threw: the companion's own fault"),
              std::string::npos);

    // A handler set again without a new reading hears from then on: nothing twice.
    sdk->SetClientStateHandler(nullptr);
    size_t heard = told.size();
    sdk->SetClientStateHandler(handler);
    ymMainLoop::shared().runFor(std::chrono::milliseconds(300));
    EXPECT_EQ(told.size(), heard);
}

TEST_F(ClientState, YmctlWatchPrintsOneObjectPerChangeAndEndsCleanlyOnSignals)
{
    // Every field, as the watch prints it in JSON.
    auto state = [&](const char *change, bool installed, bool running, const char *version, const char *transport) {
        return nlohmann::json{{"change", change},   {"installed", installed}, {"running", running},
                              {"version", version}, {"transport", transport}, {"installPath", bundle()}};
    };
    for (int signalNumber : {SIGTERM, SIGINT}) {
        ymtest::ChildProcess watch(ymtest::toolProgram("ymctl"), {"--json", "watch"});
        auto next = [&] { return nlohmann::json::parse(watch.readLine().value_or("{}")); };
        const bool again = signalNumber == SIGINT;  // installed by the first round
        EXPECT_EQ(next(), state("now", again, false, again ? "5.6.0" : "", "none"));

        auto client = std::make_unique<ymtest::RunningClient>(ymtest::RunningClient::simulator("5.6.0", {"--quiet"}));
        if (!again) {
            EXPECT_EQ(next(), state("installed", true, false, "5.6.0", "none"));
        }
        EXPECT_EQ(next(), state("started", true, true, "5.6.0", "sockets"));
        client.reset();
        EXPECT_EQ(next(), state("quit", true, false, "5.6.0", "none"));

        kill(watch.pid(), signalNumber);
        EXPECT_EQ(watch.wait(), 0) << "after signal " << signalNumber;
    }
}

TEST_F(ClientState, ABusyHomeCostsNoLookAtTheClientButTheNameItStandsForDoes)
{
    // No ~/Applications: the home folder stands for it. A shell appending to its history there,
    // and now and then renaming a fresh copy into place, is no reason to look at the client.
    const std::string history = home.path() + "/.bash_history";
    const uint64_t taken = ymClientWatch::snapshotsTaken();
    for (int line = 0; line < 300; ++line) {
        std::ofstream(history, std::ios::app) << "ls -l " << line << "\n";
        if (line % 50 == 0) {
            ymtest::writeFile(history + ".new", ymtest::readFile(history));
            std::filesystem::rename(history + ".new", history);
        }
        ymMainLoop::shared().dispatch();
    }
    ymMainLoop::shared().runFor(std::chrono::seconds(2));  // past any look these changes could ask for
    EXPECT_EQ(ymClientWatch::snapshotsTaken(), taken);

    ymtest::ChildProcess install(ymtest::toolProgram("ymsim"), {"install", "--version", "5.6.0"});
    ASSERT_EQ(install.wait(), 0);
    EXPECT_EQ(fields(waitFor(ymClientChangeInstalled)),
              fields({ymClientChangeInstalled, true, false, ymClientTransportNone, "5.6.0", bundle()}));
}

// Another user (nobody), for the processes of the test below.
constexpr uid_t kOtherUser = 65534;

TEST_F(ClientState, WithoutInotifyTheClientIsStillHeardAndInotifyIsTakenAgainWhenThereIsSome)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root, to act as another user";
    for (const auto &entry : std::filesystem::recursive_directory_iterator(home.path()))
        ASSERT_EQ(lchown(entry.path().c_str(), kOtherUser, kOtherUser), 0);
    ASSERT_EQ(chown(home.path().c_str(), kOtherUser, kOtherUser), 0);
    ymtest::InotifyInstancesHeld inotify(kOtherUser);
    if (inotify.outcome().starts_with("beyond one process"))
        GTEST_SKIP() << inotify.outcome();
    ASSERT_TRUE(inotify.held()) << inotify.outcome();

    // A companion of that user: ymctl watch (its own end bounds the waits for its lines). It has no
    // inotify instance: none of its own, and none leaked from this process.
    ymtest::ChildProcess watch("/usr/bin/setpriv", ymtest::asUser(kOtherUser, ymtest::toolProgram("ymctl"), {"--json", "watch", "--seconds", "60"}));
    auto nextChange = [&] { return nlohmann::json::parse(watch.readLine().value_or("{}")).value("change", "(ended)"); };
    ASSERT_EQ(nextChange(), "now");
    EXPECT_EQ(ymtest::inotifyInstances(watch.pid()), 0);
    // Past the quick looks that follow the watch's start: from here only the looks without inotify
    // can find the client.
    std::this_thread::sleep_for(std::chrono::seconds(2));

    ymtest::ChildProcess install("/usr/bin/setpriv", ymtest::asUser(kOtherUser, ymtest::toolProgram("ymsim"), {"install", "--version", "5.6.0"}));
    ASSERT_EQ(install.wait(), 0);
    auto client = std::make_unique<ymtest::ChildProcess>(
        "/usr/bin/setpriv", ymtest::asUser(kOtherUser, bundle() + "/Contents/MacOS/yumoapp", {"--quiet", "--seconds", "90"}));
    ASSERT_EQ(client->readLine(), "ready");
    // Installed (a look may come while the bundle is half written: then updated too), then started.
    std::vector<std::string> changes{nextChange()};
    while (changes.back() != "started" && changes.back() != "(ended)")
        changes.push_back(nextChange());
    EXPECT_EQ(changes.front(), "installed");
    EXPECT_EQ(changes.back(), "started");

    inotify.giveBackEight();
    EXPECT_TRUE(ymtest::eventually([&] { return ymtest::inotifyInstances(watch.pid()) > 0; }, std::chrono::seconds(30)));
    client.reset();
    EXPECT_EQ(nextChange(), "quit");
}

}  // namespace
