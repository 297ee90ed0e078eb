/**
 * @file
 * ymFileUtils.h: the SDK's exported file functions. Usable from C and C++.
 *
 * Paths are NUL-terminated UTF-8 texts; NULL stands for nil and is accepted everywhere, answered
 * with the failure value. No function logs, and none tells a missing item from a refused access:
 * every failure is just the failure value.
 *
 * Texts and lists that a function answers belong to the SDK and stay valid on the calling thread
 * until the same function is called again on that thread; copy what you keep.
 */
#ifndef YUMOCLIENTSDK_YMFILEUTILS_H
#define YUMOCLIENTSDK_YMFILEUTILS_H

#include <stdint.h>

#include "ymBase.h"

YM_EXTERN_C_BEGIN

/** YES when anything, file or folder, exists at the path. */
YM_EXPORT BOOL ymIsFileExist(const char *path);

/** YES when a folder exists at the path. */
YM_EXPORT BOOL ymIsDirection(const char *path);

/** Removes the file, or the folder with everything in it. YES when the item existed, could be
 * deleted (its folder is writable) and was removed. */
YM_EXPORT BOOL ymDeleteFile(const char *path);

/** The names of the folder's entries (names only, not paths; not recursive; in the order the file
 * system gives), as a NULL-terminated list. NULL when the path is NULL, missing or not a folder. */
YM_EXPORT const char *const *ymGetDirectoryItems(const char *path);

/** Creates the folder with any missing parents. YES when it was created; NO when something
 * already exists at the path (even a folder) or it could not be made. */
YM_EXPORT BOOL ymCreateDirection(const char *path);

/** Moves an item, replacing whatever is at the destination. NO when either path is NULL, the
 * source is missing, or the move fails. */
YM_EXPORT BOOL ymMoveFile(const char *sourcePath, const char *destinationPath);

/** The "CFBundleVersion" of the bundle's Contents/Info.plist (XML or binary). The empty text ""
 * when the path is NULL, there is no readable Info.plist, or it has no such key. Never NULL. */
YM_EXPORT const char *ymGetFileVersion(const char *bundlePath);

/** The item's size in bytes, truncated to a signed 32-bit value (a file over 2 GiB may read
 * negative). 0 for NULL or a missing item. Links are not followed. */
YM_EXPORT int32_t ymGetFileSizeFromPath(const char *path);

/** Writes the UTF-8 content into a new file at the path, replacing what was there; NULL content
 * makes an empty file. YES when the file was written. */
YM_EXPORT BOOL ymCreateFile(const char *path, const char *content);

YM_EXTERN_C_END

#endif
