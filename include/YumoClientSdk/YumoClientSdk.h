/**
 * @file
 * YumoClientSdk.h: everything a companion needs, in one include.
 *
 * From C (and from any language that binds to C) it declares the C interface (ymSdkC.h), the
 * command statuses (ymCommandStatus.h), the file functions (ymFileUtils.h) and the exported names
 * (ymAppDefine.h, ymIPCMsgDefine.h). From C++ it declares the SDK's classes too, with no type of
 * another library in them.
 *
 * The one header it leaves out is yStringUtils.h, the JSON helpers: they speak nlohmann::json, so
 * only a companion that uses them includes it by name (and has nlohmann-json3-dev).
 */
#ifndef YUMOCLIENTSDK_H
#define YUMOCLIENTSDK_H

#include "ymAppDefine.h"
#include "ymAudioCommand.h"
#include "ymBase.h"
#include "ymClientState.h"
#include "ymCommandStatus.h"
#include "ymFileUtils.h"
#include "ymIPCMsgDefine.h"
#include "ymSdkC.h"

#ifdef __cplusplus
#include "CMD.h"
#include "YMSocketIPCChannel.h"
#include "YMSocketIPCChannelDelegate.h"
#include "YMSocketIPCHelper.h"
#include "ySocketClientImpl.h"
#include "ySocketDelegate.h"
#include "ySocketServerImpl.h"
#include "ymAPIErrorMgr.h"
#include "ymAppHelper.h"
#include "ymClientFeatureMgr.h"
#include "ymIPCMsgMgr.h"
#include "ymLogHelper.h"
#include "ymMainLoop.h"
#include "ymSdkDelegate.h"
#include "ymSdkImplement.h"
#include "ymValue.h"
#endif

#endif
