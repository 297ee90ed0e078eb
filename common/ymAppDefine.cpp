// The exported names of the meeting client. Variables, so that a companion may point them
// elsewhere; every reader picks up the change.
#include <YumoClientSdk/ymAppDefine.h>

const char *kYumoappAppLaunchPath = "/Applications/%@";
const char *kYumoappUserAppLaunchPath = "~/Library/Application Support/yumoapp/yumoapp.app";
const char *kYumoappIdentify = "com.yumocorp.yumoapp";
const char *kYumoClientAppName = "yumoapp.app";
const char *kYMAuthority = "Yumocorp (Q4W7N2R8TX)";
const char *keyOutlookIdentifier = "com.microsoft.Outlook";

const char *kNoti_ActivateYumoApplicationExternally = "Noti_ActivateYumoApplicationExternally";
const char *kParam_ActivateYumoApplicationExternally = "Param_ActivateYumoApplicationExternally";
const char *kNoti_SilentActiveYumoApplication = "Noti_SilentActiveYumoApp";
