/// @file
#pragma once

#include <cstdint>
#include <string>

#include "ymBase.h"

/// ySocketDelegate: what a socket server or client hands the text it reads to.
class YM_EXPORT ySocketDelegate {
public:
    virtual ~ySocketDelegate();

    /// Called on the connection's reader thread after every read, with all the text gathered on
    /// that connection since the last complete message. Answer 0 when the text was a whole
    /// message and has been taken (gathering starts afresh), anything else to keep gathering.
    /// Different connections call this concurrently.
    virtual int32_t onMessageRecieved(const std::string &message) = 0;
};
