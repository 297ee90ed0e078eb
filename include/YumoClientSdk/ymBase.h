/**
 * @file
 * ymBase.h: the definitions every YumoClientSdk header stands on. Usable from C and C++.
 *
 * BOOL is one byte, YES is 1 and NO is 0, as companions know them from the meeting client's own
 * headers. YM_EXPORT marks what the library exports; everything else stays inside it.
 */
#ifndef YUMOCLIENTSDK_YMBASE_H
#define YUMOCLIENTSDK_YMBASE_H

#ifndef YM_BOOL_DEFINED
/** Set once BOOL is defined, so that another header defining it the same way can tell. */
#define YM_BOOL_DEFINED
/** A one-byte Boolean: YES or NO. */
typedef signed char BOOL;
#endif
#ifndef YES
/** True, as a BOOL. */
#define YES ((BOOL)1)
#endif
#ifndef NO
/** False, as a BOOL. */
#define NO ((BOOL)0)
#endif

/** Marks what the library exports. */
#define YM_EXPORT __attribute__((visibility("default")))
/** Marks what stays inside the library, though declared in an exported class (its state). */
#define YM_HIDDEN __attribute__((visibility("hidden")))

#ifdef __cplusplus
/** Opens C linkage in C++ (nothing in C). */
#define YM_EXTERN_C_BEGIN extern "C" {
/** Closes C linkage in C++ (nothing in C). */
#define YM_EXTERN_C_END }
#else
#define YM_EXTERN_C_BEGIN
#define YM_EXTERN_C_END
#endif

#endif
