// The meeting client coming and going as a companion hears of it, with the real simulator under a
// temporary $HOME: started, quit, restarted as another version, its bundle removed while it runs;
// in C++, in C and through ymctl watch. Each change is waited for on the main loop, with no poll
// of the client's status in between.
#include <YumoClientSdk/ymMainLoop.h>
#include <YumoClientSdk/ymSdkC.h>
#include <YumoClientSdk/ymSdkImplement.h>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

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
        auto next = [&]() -> std::optional<size_t> {
            for (size_t i = waited; i < told.size(); ++i)
                if (told[i].change == change)
                    return i;
            return std::nullopt;
        };
        EXPECT_TRUE(ymtest::runMainLoopUntil([&] { return next().has_value(); }, limit)) << "no change " << change << " after " << toldText();
        std::optional<size_t> found = next();
        if (!found)
            return {};
        waited = *found + 1;
        return told[*found];
    }
    std::string toldText() const
    {
        std::string text;
        for (const YMClientState_s &state : told)
            text += std::to_string(state.change) + (state.running ? "r " : " ");
        return text;
    }
    std::string bundle() const { return home.path() + "/Applications/yumoapp.app"; }
    // Every field of a state as one text: one comparison checks them all.
    static std::string fields(const YMClientState_s &state)
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
    EXPECT_EQ(state.change, ymClientChangeNone);
    EXPECT_TRUE(state.installed);
    EXPECT_FALSE(state.running);
    EXPECT_STREQ(state.version, "5.6.0");
    EXPECT_EQ(std::string(state.installPath), bundle());

    ymSetClientStateCallback(nullptr, nullptr);  // no more calls
    client = std::make_unique<ymtest::RunningClient>(ymtest::RunningClient::simulator("5.6.0", {"--quiet"}));
    EXPECT_EQ(sdk->GetIMPresenceStatus(), ymCommandStatusSent);
    ymMainLoop::shared().runFor(std::chrono::milliseconds(200));
    EXPECT_EQ(told.size(), 3u);
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

}  // namespace
