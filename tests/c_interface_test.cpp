// The C interface when memory runs out: every function answers its failure answer and nothing
// escapes, and the SDK works again once memory is there. This program's operator new fails on
// request, for the library's allocations as for its own.
#include <YumoClientSdk/ymSdkC.h>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <tuple>

#include "support/TestSupport.h"

namespace {
thread_local bool allocationsFail = false;
}

void *operator new(std::size_t size)
{
    if (allocationsFail)
        throw std::bad_alloc();
    if (void *memory = std::malloc(size == 0 ? 1 : size))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void *memory) noexcept { std::free(memory); }
void operator delete(void *memory, std::size_t) noexcept { std::free(memory); }

namespace {

TEST(CInterface, MemoryRunningOutGivesTheFailureAnswersAndNothingElse)
{
    ymtest::TemporaryHome home;
    ymSetErrorCode(2);  // its text is longer than a string holds without allocating

    allocationsFail = true;
    const int64_t features = ymGetFeatures();
    const int64_t available = ymGetSDKAvailableFeatures();
    const BOOL registered = ymRegisterAudioDevice("Headset", "1", 2830, 3);
    const int32_t presence = ymGetIMPresenceStatus();
    const std::string errorText = ymGetErrorText();
    const bool noInstallPath = ymGetYumoClientInstallPath() == nullptr;
    const std::string version = ymGetYumoClientVersion();
    const bool noLanguage = ymGetSystemLanguage() == nullptr;
    ymClientState state;
    const BOOL stateRead = ymGetClientState(&state);
    const BOOL packageSigned = ymCheckCodeSignForYumoPkg("/nowhere.pkg");
    ymCleanupAudioDevices();
    const size_t cleanedUp = ymCleanupAudioDevicesAndCount();
    allocationsFail = false;

    EXPECT_EQ(std::tie(features, available, registered, presence, errorText, noInstallPath, version, noLanguage, stateRead, packageSigned,
                       cleanedUp),
              std::make_tuple(0, 0, NO, ymCommandStatusNoTransport, "", true, "", true, NO, NO, 0u));

    // With memory again, the same calls are answered: nothing was left half made.
    EXPECT_STREQ(ymGetErrorText(), "0:Error YumoClientNotInstall");
    EXPECT_EQ(ymRegisterAudioDevice("Headset", "1", 2830, 3), YES);
    EXPECT_EQ(ymIsRegisteredDevice("Headset", "1"), YES);
    EXPECT_EQ(ymGetClientState(&state), YES);
    EXPECT_EQ(state.installed, NO);
    EXPECT_NE(ymGetYumoClientInstallPath(), nullptr);
}

}  // namespace
