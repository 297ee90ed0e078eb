// What the facade tests share: a private home, a facade of their own, and a delegate that
// records what it is called with and on which thread.
#pragma once

#include <YumoClientSdk/ymSdkImplement.h>
#include <nlohmann/json.hpp>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "support/TestSupport.h"

namespace ymtest {

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

// Reads the shared device list of the suite straight from its file.
std::vector<std::string> sharedDeviceTexts();
// Replaces the shared device list with the given texts.
void writeSharedDeviceTexts(const std::vector<std::string> &texts);
// The facade's log so far.
std::string sdkLog();

}  // namespace ymtest
