// The checks a command makes of the meeting client, on the one snapshot the command took
// (ymClientWatch::current()): each writes the lines the public method of the same name writes, in
// the same order, without looking at the client again.
#pragma once

#include <YumoClientSdk/ymClientState.h>
#include <cstdint>

#include "common/ymClientSnapshot.h"

namespace ymClientChecks {

// ymAPIErrorMgr::getYumoAppStatus().
int32_t getYumoAppStatus(const ymClientSnapshot &client);

// ymAPIErrorMgr::checkYumoAppError(): the code is stored in the shared error manager too.
int32_t checkYumoAppError(const ymClientSnapshot &client);

// ymClientFeatureMgr::isSupportedYumoClientVersion().
bool isSupportedYumoClientVersion(const ymClientSnapshot &client);

// ymClientFeatureMgr::isYumoClientSupportNewIPC().
bool isYumoClientSupportNewIPC(const ymClientSnapshot &client);

// The transport a command takes with this client, without a log line: none while it does not run,
// else sockets or notifications as isYumoClientSupportNewIPC() answers.
ymClientTransport transportOf(const ymClientSnapshot &client);

}  // namespace ymClientChecks
