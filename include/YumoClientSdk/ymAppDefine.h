/**
 * @file
 * ymAppDefine.h: the names that find, identify and wake the meeting client, exported for
 * companions. Usable from C and C++.
 *
 * Each is a writable pointer variable initialised to the value shown; the SDK reads them at each
 * use, so a companion (or a test) that points one elsewhere changes where the SDK looks.
 */
#ifndef YUMOCLIENTSDK_YMAPPDEFINE_H
#define YUMOCLIENTSDK_YMAPPDEFINE_H

#include "ymBase.h"

YM_EXTERN_C_BEGIN

/** "/Applications/%@": the system Applications folder, "%@" standing for the application's name. */
YM_EXPORT extern const char *kYumoappAppLaunchPath;
/** "~/Library/Application Support/yumoapp/yumoapp.app": the meeting client's own copy. */
YM_EXPORT extern const char *kYumoappUserAppLaunchPath;
/** "com.yumocorp.yumoapp": the meeting client's bundle identifier. */
YM_EXPORT extern const char *kYumoappIdentify;
/** "yumoapp.app": the meeting client's bundle name. */
YM_EXPORT extern const char *kYumoClientAppName;
/** "Yumocorp (Q4W7N2R8TX)": the maker's signing authority, for the companion's own use. */
YM_EXPORT extern const char *kYMAuthority;
/** "com.microsoft.Outlook": Outlook's bundle identifier. */
YM_EXPORT extern const char *keyOutlookIdentifier;

/** "Noti_ActivateYumoApplicationExternally": hands a URL to the running meeting client. */
YM_EXPORT extern const char *kNoti_ActivateYumoApplicationExternally;
/** "Param_ActivateYumoApplicationExternally": the key of that URL in the user information. */
YM_EXPORT extern const char *kParam_ActivateYumoApplicationExternally;
/** "Noti_SilentActiveYumoApp": asks the running meeting client to activate silently. */
YM_EXPORT extern const char *kNoti_SilentActiveYumoApplication;

YM_EXTERN_C_END

#endif
