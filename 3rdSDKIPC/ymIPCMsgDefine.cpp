// The exported names of the message envelope. They are variables, not constants: a peer or a
// companion may point one at another text, and every reader picks up the change.
#include <YumoClientSdk/ymIPCMsgDefine.h>

const char *IPCMsg_CONTENT = "content";
const char *IPCMsg_SOURCE = "source";
const char *IPCMsg_Content_CommandId = "commandId";
const char *IPCMsg_Content_From = "from";
const char *IPCMsg_Content_Version = "version";
const char *IPCMsg_Content_Data = "data";

const char *NOTIFY_IPC_YUMOSDK_TO_YUMOCLIENT = "YumoLauncher3rdSdkToYumoVideoClient";
const char *NOTIFY_IPC_YUMOCLIENT_TO_YUMOSDK = "YumoVideoClientToYumoLauncher3rdSdk";
const char *NOTIFY_IPC_YUMOSDK_TO_YYHOST = "YumoLauncher3rdSdkToYyhost";
const char *NOTIFY_IPC_YYHOST_TO_YUMOSDK = "YyhostToYumoLauncher3rdSdk";
const char *NOTIFY_IPC_YUMOSDK_TO_3RDCLIENT = "YumoSdkTo3rdClient";
const char *NOTIFY_IPC_3RDCLIENT_TO_YUMOSDK = "3rdClientToYumoSdk";
const char *NOTIFY_YUMOAUDIO_RESPONSE = "Notify_YumoAudioResponse";

const char *YMCLIENTSDK_SHAREDATA = "YumoClientSdk.ShareData";
const char *AUDIODEVICE = "AudioDevice";

// "@(#)" lets what(1) find the identification string in the binary.
const unsigned char YumoClientSdkVersionString[] = "@(#)PROGRAM:YumoClientSdk  PROJECT:YumoClientSdk-1\n";
const double YumoClientSdkVersionNumber = 1.0;
