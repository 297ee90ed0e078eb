/// @file
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ymBase.h"

/// YMSocketIPCChannelDelegate: the receiver of whole messages, from either transport.
class YM_EXPORT YMSocketIPCChannelDelegate {
public:
    virtual ~YMSocketIPCChannelDelegate();

    /// One whole message, exactly as it arrived, called on the main loop's thread (see
    /// ymMainLoop). The notification transport may hand over a missing text. The result is
    /// not looked at by the transports.
    virtual int32_t onMessageRecieved(const std::optional<std::string> &message) = 0;
};
