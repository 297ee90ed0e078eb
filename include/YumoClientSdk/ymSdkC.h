/**
 * @file
 * ymSdkC.h: the SDK's main job in plain C, for companions in C and for every language that binds
 * to C (Python's ctypes, Rust, Go, Swift, ...). Usable from C and C++.
 *
 * These functions are the shared facade (ymSdkImplement::SharedInstance()), the main loop
 * (ymMainLoop::shared()), the error manager and the app helper of the C++ interface: the same
 * objects, the same log lines, the same answers. The first call of any of them that needs the
 * facade creates it (and so sends the log to its file, see ymLogHelper).
 *
 * A C companion:
 *
 *     static void presence(const ymPresenceStatus *status, void *context) { ... }
 *     ymSetPresenceStatusCallback(presence, NULL);
 *     ymRegisterAudioDevice("Headset", "1", 2830, 3);
 *     if (ymGetIMPresenceStatus() == ymCommandStatusSent)
 *         ymRunMainLoopFor(5000);               // presence() is called from in here
 *     ymCleanupAudioDevices();
 *
 * Texts: every text is UTF-8 and NUL-terminated. Texts a function takes are the caller's and are
 * copied where they are kept. Texts a function answers belong to the SDK: they stay valid on the
 * calling thread until that same function is called again on that thread; copy what you keep.
 * Texts in a record handed to a callback are valid until the callback returns. NULL stands for a
 * missing text wherever one is taken or answered.
 *
 * Threads: every function may be called from any thread, at the same time as any other, except
 * that the main loop is run (ymDispatchMainLoop(), ymRunMainLoop(), ymRunMainLoopFor()) by one
 * thread at a time. The callbacks are called on the thread that runs the main loop, never from
 * inside another function of this file.
 *
 * Nothing here raises or aborts: a failure is told by the answer (NO, NULL, a status).
 */
#ifndef YUMOCLIENTSDK_YMSDKC_H
#define YUMOCLIENTSDK_YMSDKC_H

#include <stddef.h>
#include <stdint.h>

#include "ymAudioCommand.h"
#include "ymBase.h"
#include "ymClientState.h"
#include "ymCommandStatus.h"

YM_EXTERN_C_BEGIN

/* ---- Answers ---- */

/** The meeting client's answer to a presence request (ymSdkIMPresenceStatus in C++). */
typedef struct ymPresenceStatus {
    BOOL error;              /**< YES when the answer's result reads as failure ("0:...") */
    int32_t code;            /**< the result's code, the part before ":" */
    const char *text;        /**< the result's text, the part after ":"; NULL when there is none */
    int32_t presenceStatus;  /**< the user's presence status, as the meeting client numbers it */
} ymPresenceStatus;

/** An audio event from the host process for one of this companion's devices (ymSdkAudioInfo). */
typedef struct ymAudioInfo {
    int32_t audioCmd;         /**< the audio command, as the host process numbers it */
    const char *deviceIndex;  /**< the device's index ("0" when the event names none) */
    const char *deviceName;   /**< the device's name; NULL when the event names none */
} ymAudioInfo;

/** Called with each presence answer; `context` is what was given with the callback. */
typedef void (*ymPresenceStatusCallback)(const ymPresenceStatus *status, void *context);

/** Called with each audio event for a device this process registered. */
typedef void (*ymAudioInfoCallback)(const ymAudioInfo *info, void *context);

/** Sets the function that receives presence answers (NULL: none), with its context. */
YM_EXPORT void ymSetPresenceStatusCallback(ymPresenceStatusCallback callback, void *context);

/** Sets the function that receives audio events (NULL: none), with its context. */
YM_EXPORT void ymSetAudioInfoCallback(ymAudioInfoCallback callback, void *context);

/* ---- The log and standard error ---- */

/** Chooses, before the facade exists, whether the SDK takes the process's standard error for its
 * log (YES, the default: whatever the companion writes to standard error lands in the log file
 * too) or writes its lines to the log file only and leaves standard error alone (NO). The
 * environment variable YUMOCLIENTSDK_STDERR=keep chooses NO for a program that does not call this.
 * Answers NO, changing nothing, once the facade exists. (ymLogHelper::setTakesStandardError) */
YM_EXPORT BOOL ymSetTakesStandardError(BOOL takes);

/** Sets the size at which the log file is started afresh while the process runs: 10 MiB unless
 * set, 0 for never (YUMOCLIENTSDK_LOG_LIMIT, in bytes, for a program that does not call this).
 * Answers NO, changing nothing, for a size below 65536 other than 0. (ymLogHelper::setLogSizeLimit) */
YM_EXPORT BOOL ymSetLogSizeLimit(uint64_t bytes);

/* ---- The facade ---- */

/** Registers a device this companion owns, with numeric USB identifiers: in this process's list
 * (which decides which audio events reach the callback) and in the list every companion of the
 * user shares. NO when the name or index is NULL or empty; YES also when already registered. */
YM_EXPORT BOOL ymRegisterAudioDevice(const char *deviceName, const char *deviceIndex, uint32_t usbVid, uint32_t usbPid);

/** The same with the USB identifiers as texts (stored as texts); NO also when one is NULL. */
YM_EXPORT BOOL ymRegisterAudioDeviceWithTexts(const char *deviceName, const char *deviceIndex, const char *usbVid,
                                              const char *usbPid);

/** Removes this process's devices from the shared list and sends the release command 101 for each
 * one removed (the devices are released). Call it before the companion quits. */
YM_EXPORT void ymCleanupAudioDevices(void);

/** The same, answering how many devices were removed from the shared list (a release went out for
 * each); 0 when this process registered none or the list could not be written. */
YM_EXPORT size_t ymCleanupAudioDevicesAndCount(void);

/** YES when this process registered the device (same name and index) in its current run. */
YM_EXPORT BOOL ymIsRegisteredDevice(const char *deviceName, const char *deviceIndex);

/** Asks the meeting client for the user's presence status. Answers a ymCommandStatus; the answer
 * comes to the presence callback on the main loop. Its status is the meeting client's own number,
 * 0 when the answer carries none (ymAudioCommand.h). */
YM_EXPORT int32_t ymGetIMPresenceStatus(void);

/** Sends an audio command for the device to the host process. Mind the order: the index comes
 * before the name here, the reverse of ymRegisterAudioDevice(); swapped, the command is sent (0)
 * for a device nobody owns and no event comes back. The index and name are escaped as JSON
 * requires, so any text travels whole; NULL prints "(null)". The codes are the host process's own,
 * carried unchanged; 101 releases the device (ymAudioCommand.h). Answers a ymCommandStatus. */
YM_EXPORT int32_t ymSetAudioCmd(int32_t audioCmd, const char *deviceIndex, const char *deviceName, uint32_t usbVid,
                                uint32_t usbPid);

/** The features this SDK offers: 3. */
YM_EXPORT int64_t ymGetSDKAvailableFeatures(void);

/** Stores the mask when it shares a bit with the available features and answers YES; else NO. */
YM_EXPORT BOOL ymRegisterFeature(int64_t features);

/** The feature mask last accepted; 0 at first. */
YM_EXPORT int64_t ymGetFeatures(void);

/* ---- The main loop ---- */

/** A descriptor that polls readable while there is something to dispatch: watch it in your own
 * poll, epoll or GLib loop and call ymDispatchMainLoop() when it is readable. Never closed. */
YM_EXPORT int ymGetMainLoopDescriptor(void);

/** Runs what is ready now, without waiting; the callbacks are called from in here. Answers how
 * many queued deliveries ran. */
YM_EXPORT size_t ymDispatchMainLoop(void);

/** Runs the main loop on the calling thread until ymStopMainLoop(). */
YM_EXPORT void ymRunMainLoop(void);

/** Runs the main loop on the calling thread for the given milliseconds (or until
 * ymStopMainLoop()). */
YM_EXPORT void ymRunMainLoopFor(int64_t milliseconds);

/** Makes ymRunMainLoop() and ymRunMainLoopFor() return after the current round. Any thread. */
YM_EXPORT void ymStopMainLoop(void);

/* ---- The meeting client's state ---- */

/** Whether the meeting client can take a command: a ymCommandStatus (0, or 5 when it is not
 * running, also when not installed). Also stored as the error code. */
YM_EXPORT int32_t ymCheckYumoAppError(void);

/** The meeting client's state: 1 not running (also when not installed or too old), 2 running. */
YM_EXPORT int32_t ymGetYumoAppStatus(void);

/** The stored error code: that of the last check, or of the last ymSetErrorCode(). */
YM_EXPORT int32_t ymGetErrorCode(void);

/** Stores an error code (7, not signed in, is only ever set so). */
YM_EXPORT void ymSetErrorCode(int32_t errorCode);

/** The text of the stored error code: "0:Error YumoClientNotRunning" and its siblings, "" for a
 * code without one. Never NULL. */
YM_EXPORT const char *ymGetErrorText(void);

/** Called on the main loop each time the meeting client starts, quits, is installed, removed,
 * updated or moved (ymClientState.h); `context` is what was given with the callback. */
typedef void (*ymClientStateCallback)(const ymClientState *state, void *context);

/** Sets the function told of the meeting client's changes (NULL: none), with its context, within a
 * second of each change. Setting one starts the SDK's watch of the client: it waits on the file
 * system and the client's processes, and does not poll. A callback set after ymGetClientState()
 * hears of every change since that reading, also of one that came in between. */
YM_EXPORT void ymSetClientStateCallback(ymClientStateCallback callback, void *context);

/** Fills `state` with the meeting client now (change ymClientChangeNone). Its texts stay valid on
 * the calling thread until this function is called again there. NO when `state` is NULL. */
YM_EXPORT BOOL ymGetClientState(ymClientState *state);

/* ---- Finding and checking the meeting client, Outlook and the system ---- */

/** YES when the meeting client's bundle was found. */
YM_EXPORT BOOL ymIsYumoappInstalled(void);

/** YES when a process of this user runs the meeting client. */
YM_EXPORT BOOL ymIsYumoRunning(void);

/** The meeting client's bundle path (where it was found, or where it was last looked for). */
YM_EXPORT const char *ymGetYumoClientInstallPath(void);

/** The installed meeting client's "CFBundleVersion"; "" when it cannot be read. */
YM_EXPORT const char *ymGetYumoClientVersion(void);

/** YES for meeting client 4.2 and later. */
YM_EXPORT BOOL ymIsSupportedYumoClientVersion(void);

/** YES for meeting client 5.6 and later (reached by socket; older ones by notification). */
YM_EXPORT BOOL ymIsYumoClientSupportNewIPC(void);

/** Starts the meeting client; YES only when a new instance was started (a running one is handed
 * the launch URL instead, and the answer is NO). */
YM_EXPORT BOOL ymLaunchYumoClient(void);

/** Asks a running meeting client to activate silently; never starts one. */
YM_EXPORT void ymSilentActiveYumoClient(void);

/** YES when Outlook is installed. */
YM_EXPORT BOOL ymIsOutlookInstalled(void);

/** YES while Outlook runs (as this user). */
YM_EXPORT BOOL ymIsOutlookRunning(void);

/** Outlook's "CFBundleShortVersionString"; NULL when it cannot be read. */
YM_EXPORT const char *ymGetOutlookVersion(void);

/** YES for Outlook 14.1.4 and later. */
YM_EXPORT BOOL ymIsSupportedOutlookVersion(void);

/** YES when the system version is supported (never on this platform: it has no Gestalt). */
YM_EXPORT BOOL ymIsSupportedOSVersion(void);

/** The user's first preferred language ("en-US"); NULL when nothing says. */
YM_EXPORT const char *ymGetSystemLanguage(void);

/** YES when the system's signing tool accepts the bundle as signed by the maker. */
YM_EXPORT BOOL ymCheckAppCodeSign(const char *bundlePath);

/** YES when the installer package's signature chain names the maker and Apple's root. */
YM_EXPORT BOOL ymCheckCodeSignForYumoPkg(const char *packagePath);

YM_EXTERN_C_END

#endif
