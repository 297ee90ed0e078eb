/**
 * @file
 * ymIPCMsgDefine.h: the names that make up the message envelope and the notification transport,
 * exported for the meeting client, its host process and companions. Usable from C and C++.
 *
 * Each name is a writable pointer variable initialised to the value shown. The SDK reads the
 * notification names afresh at each use, so a companion that assigns another text to one of them
 * changes what is posted from the next post on, and what is observed if it does so before the
 * notification manager is created.
 */
#ifndef YUMOCLIENTSDK_YMIPCMSGDEFINE_H
#define YUMOCLIENTSDK_YMIPCMSGDEFINE_H

#include "ymBase.h"

YM_EXTERN_C_BEGIN

/** Keys of the message and of a notification's user information. */
YM_EXPORT extern const char *IPCMsg_CONTENT;  /**< "content": user-info key of a notification */
YM_EXPORT extern const char *IPCMsg_SOURCE;  /**< "source" */
YM_EXPORT extern const char *IPCMsg_Content_CommandId;  /**< "commandId": its presence marks a message */
YM_EXPORT extern const char *IPCMsg_Content_From;  /**< "from" */
YM_EXPORT extern const char *IPCMsg_Content_Version;  /**< "version" */
YM_EXPORT extern const char *IPCMsg_Content_Data;  /**< "data" */

/** Notification names of the notification transport. */
YM_EXPORT extern const char *NOTIFY_IPC_YUMOSDK_TO_YUMOCLIENT;  /**< "YumoLauncher3rdSdkToYumoVideoClient" */
YM_EXPORT extern const char *NOTIFY_IPC_YUMOCLIENT_TO_YUMOSDK;  /**< "YumoVideoClientToYumoLauncher3rdSdk" */
YM_EXPORT extern const char *NOTIFY_IPC_YUMOSDK_TO_YYHOST;  /**< "YumoLauncher3rdSdkToYyhost" */
YM_EXPORT extern const char *NOTIFY_IPC_YYHOST_TO_YUMOSDK;  /**< "YyhostToYumoLauncher3rdSdk" */
YM_EXPORT extern const char *NOTIFY_IPC_YUMOSDK_TO_3RDCLIENT;  /**< "YumoSdkTo3rdClient" */
YM_EXPORT extern const char *NOTIFY_IPC_3RDCLIENT_TO_YUMOSDK;  /**< "3rdClientToYumoSdk" */
YM_EXPORT extern const char *NOTIFY_YUMOAUDIO_RESPONSE;  /**< "Notify_YumoAudioResponse" */

/** The user-defaults suite and key of the registered audio devices, shared by every companion. */
YM_EXPORT extern const char *YMCLIENTSDK_SHAREDATA;  /**< "YumoClientSdk.ShareData" */
YM_EXPORT extern const char *AUDIODEVICE;  /**< "AudioDevice" */

/** Identification of this build: a what(1) string and the version number 1.0. */
YM_EXPORT extern const unsigned char YumoClientSdkVersionString[];  /**< "@(#)PROGRAM:YumoClientSdk  PROJECT:YumoClientSdk-1\n" */
YM_EXPORT extern const double YumoClientSdkVersionNumber;  /**< the version number, 1.0 */

YM_EXTERN_C_END

#endif
