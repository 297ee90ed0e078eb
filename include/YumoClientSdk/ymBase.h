/*
 * ymBase.h: the definitions every YumoClientSdk header stands on. Usable from C and C++.
 *
 * BOOL is one byte, YES is 1 and NO is 0, as companions know them from the meeting client's own
 * headers. YM_EXPORT marks what the library exports; everything else stays inside it.
 */
#ifndef YUMOCLIENTSDK_YMBASE_H
#define YUMOCLIENTSDK_YMBASE_H

#ifndef YM_BOOL_DEFINED
#define YM_BOOL_DEFINED
typedef signed char BOOL;
#endif
#ifndef YES
#define YES ((BOOL)1)
#endif
#ifndef NO
#define NO ((BOOL)0)
#endif

#define YM_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
#define YM_EXTERN_C_BEGIN extern "C" {
#define YM_EXTERN_C_END }
#else
#define YM_EXTERN_C_BEGIN
#define YM_EXTERN_C_END
#endif

#endif
