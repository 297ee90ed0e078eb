/// @file
#pragma once

#include <string>

#include "ymBase.h"

/// ymClientFeatureMgr: what the installed meeting client's version allows.
///
/// The version is the bundle's "CFBundleVersion", read afresh at each call. Its first two
/// components (integer readings; missing ones are 0) are compared as unsigned 64-bit numbers, so a
/// negative component counts as larger than any threshold.
class YM_EXPORT ymClientFeatureMgr {
public:
    /// The shared manager, created on first use and never destroyed.
    static ymClientFeatureMgr *sharedInstance();

    /// The installed meeting client's "CFBundleVersion"; "" when it cannot be read.
    static std::string getYumoClientVersion();

    /// YES for version 4.2 and later: the meeting client can be used at all.
    bool isSupportedYumoClientVersion();

    /// YES for version 5.6 and later: the meeting client speaks the socket transport; older ones
    /// are reached through notifications.
    bool isYumoClientSupportNewIPC();

    ymClientFeatureMgr(const ymClientFeatureMgr &) = delete;
    ymClientFeatureMgr &operator=(const ymClientFeatureMgr &) = delete;

private:
    ymClientFeatureMgr() = default;
};
