// What the tests of a whole companion share: a private home on the session bus, a delegate that
// records what it is called with and on which thread, and the shared device list.
#pragma once

#include <YumoClientSdk/ymSdkImplement.h>
#include <nlohmann/json.hpp>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "platform/ymNotificationCenter.h"
#include "support/TestSupport.h"

namespace ymtest {

// A test in a home of its own that needs the session bus: skipped without one, never passed
// silently. (The test command starts a private bus when none runs.)
class SessionTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!ymNotificationCenter::defaultCenter().isConnected())
            GTEST_SKIP() << "no session bus";
    }
    TemporaryHome home;
};

class RecordingDelegate : public ymSdkDelegate {
public:
    std::vector<YMPresenceStatus_s> presence;
    std::vector<YMAudioInfo_s> audio;
    std::vector<std::thread::id> threads;
    void ymSdkIMPresenceStatus(YMPresenceStatus_s status) override
    {
        presence.push_back(status);
        threads.push_back(std::this_thread::get_id());
    }
    void ymSdkAudioInfo(YMAudioInfo_s info) override
    {
        audio.push_back(info);
        threads.push_back(std::this_thread::get_id());
    }
};

// Every field of an answer, as one text: one comparison checks them all, the reserved ones too.
std::string fieldsOf(const YMPresenceStatus_s &status);
std::string fieldsOf(const YMAudioInfo_s &info);

// Reads the shared device list of the suite straight from its file.
std::vector<std::string> sharedDeviceTexts();
// Replaces the shared device list with the given texts.
void writeSharedDeviceTexts(const std::vector<std::string> &texts);
// The facade's log so far.
std::string sdkLog();

}  // namespace ymtest
