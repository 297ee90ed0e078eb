/// @file
/// The records that cross the SDK's public interface, and ymSdkDelegate, the companion's receiver
/// of answers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ymBase.h"

/// An audio device as a companion knows it. Passed by value. Its index and name go into messages
/// escaped as JSON requires: any text travels whole.
struct YMAudioDevice_s {
    std::optional<std::string> deviceIndex;  ///< the device's index, as text
    std::optional<std::string> deviceName;  ///< the device's name
    uint32_t usbVid = 0;  ///< USB vendor identifier
    uint32_t usbPid = 0;  ///< USB product identifier
};

/// The answer to a presence request. Every byte not set reads zero.
struct YMPresenceStatus_s {
    BOOL error = NO;  ///< YES when the answer's result reads as failure ("0:...")
    int32_t code = 0;  ///< the result's code, the part before ":"
    std::optional<std::string> text;  ///< the result's text, the part after ":"; nil when there is none
    int32_t presenceStatus = 0;  ///< the user's presence status, as the meeting client numbers it
    int32_t reserved = 0;  ///< always zero
};

/// An audio event from the host process for one of this companion's devices. Every byte not set
/// reads zero: the device's usbVid and usbPid are not filled.
struct YMAudioInfo_s {
    uint64_t reserved0 = 0;  ///< not filled
    int32_t audioCmd = 0;  ///< the audio command, as the host process numbers it
    uint8_t reserved1[12] = {};  ///< not filled
    YMAudioDevice_s audioDevice;  ///< deviceIndex and deviceName of the device
};

/// The companion's receiver of answers. Both methods are optional: the defaults do nothing. They
/// are called on the thread that runs the main loop (see ymMainLoop), one at a time, in the order
/// the messages came; never on a thread of the caller of a command.
class YM_EXPORT ymSdkDelegate {
public:
    virtual ~ymSdkDelegate();

    /// The meeting client answered a presence request.
    virtual void ymSdkIMPresenceStatus(YMPresenceStatus_s presenceStatus);

    /// The host process sent an audio event for a device this process registered.
    virtual void ymSdkAudioInfo(YMAudioInfo_s audioInfo);
};
