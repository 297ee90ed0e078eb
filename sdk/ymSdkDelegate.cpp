// The delegate's out-of-line members: its vtable and type information live in the library alone.
#include <YumoClientSdk/ymSdkDelegate.h>

ymSdkDelegate::~ymSdkDelegate() = default;
void ymSdkDelegate::ymSdkIMPresenceStatus(YMPresenceStatus_s) {}
void ymSdkDelegate::ymSdkAudioInfo(YMAudioInfo_s) {}
