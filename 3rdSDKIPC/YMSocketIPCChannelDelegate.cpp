// The delegate's out-of-line destructor: its vtable and type information live in the library alone.
#include <YumoClientSdk/YMSocketIPCChannelDelegate.h>

YMSocketIPCChannelDelegate::~YMSocketIPCChannelDelegate() = default;
