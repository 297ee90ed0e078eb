/**
 * @file
 * YumoClientSdk.h: everything a companion needs. From C it declares the exported names and the
 * file functions; from C++ it declares the SDK's classes too.
 */
#ifndef YUMOCLIENTSDK_H
#define YUMOCLIENTSDK_H

#include "ymAppDefine.h"
#include "ymBase.h"
#include "ymFileUtils.h"
#include "ymIPCMsgDefine.h"

#ifdef __cplusplus
#include "CMD.h"
#include "YMSocketIPCChannel.h"
#include "YMSocketIPCChannelDelegate.h"
#include "YMSocketIPCHelper.h"
#include "ySocketClientImpl.h"
#include "ySocketDelegate.h"
#include "ySocketServerImpl.h"
#include "yStringUtils.h"
#include "ymAPIErrorMgr.h"
#include "ymAppHelper.h"
#include "ymClientFeatureMgr.h"
#include "ymIPCMsgMgr.h"
#include "ymLogHelper.h"
#include "ymMainLoop.h"
#include "ymSdkDelegate.h"
#include "ymSdkImplement.h"
#endif

#endif
