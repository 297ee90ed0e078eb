/// @file
#pragma once

#include <cstdint>
#include <string>

#include "ymBase.h"

/// ySocketDelegate: what a socket server or client hands the text it reads to.
class YM_EXPORT ySocketDelegate {
public:
    virtual ~ySocketDelegate();

    /// Called on the SDK's I/O thread with one whole message from one connection: one top-level
    /// JSON object, byte for byte as it came, however the bytes were cut into reads (see the
    /// framing in YMSocketIPCChannel_SDK). Messages of one connection come in order, each once.
    /// Answer 0 when the text was a message and has been taken, anything else when it was not one
    /// of yours; either way the next call brings the next text. Do not block: every socket of the
    /// process waits meanwhile.
    virtual int32_t onMessageRecieved(const std::string &message) = 0;
};
