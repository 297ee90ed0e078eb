/**
 * @file
 * ymClientState.h: the meeting client as a companion hears of it coming and going. Usable from C
 * and C++.
 *
 * The SDK watches the meeting client (its install folders, its bundle, its running processes) and
 * tells a companion that asks (ymSdkImplement::SetClientStateHandler(), ymSetClientStateCallback())
 * each time it starts, quits, is updated, installed, removed or moved, within a second of the
 * change, on the main loop. A companion re-registers its devices, or refreshes what it shows, then.
 * Nothing is polled: with nothing changing, the SDK wakes once a minute at most. (Where no inotify
 * instance can be had, it looks by itself every second or so instead.)
 */
#ifndef YUMOCLIENTSDK_YMCLIENTSTATE_H
#define YUMOCLIENTSDK_YMCLIENTSTATE_H

#include <stdint.h>

#include "ymBase.h"

/** What changed. When several things change at once (a client replaced and started again), each
 * is told, once, in the order they happen: the old client quits, then its bundle is installed,
 * removed, moved or updated, then the new one starts; each call has the client as it stands after
 * that step. */
typedef enum ymClientChange {
    /** Nothing: the state as it is (an answer of ymSdkImplement::GetClientState()). */
    ymClientChangeNone = 0,
    /** The meeting client started (or quit and started again): register devices again. */
    ymClientChangeStarted = 1,
    /** The last process of the meeting client ended: commands answer 5 from now on. */
    ymClientChangeQuit = 2,
    /** The meeting client was installed (it does not run yet). */
    ymClientChangeInstalled = 3,
    /** The meeting client was removed. */
    ymClientChangeRemoved = 4,
    /** The meeting client was replaced by another version (it may speak another transport). */
    ymClientChangeUpdated = 5,
    /** The meeting client is found at another place. */
    ymClientChangeMoved = 6
} ymClientChange;

/** The transport commands take now. */
typedef enum ymClientTransport {
    /** None: the meeting client does not run, and commands are refused (5). */
    ymClientTransportNone = 0,
    /** The sockets in the group container (meeting client 5.6 and later). */
    ymClientTransportSockets = 1,
    /** Notifications on the session bus (older meeting clients). */
    ymClientTransportNotifications = 2
} ymClientTransport;

/** The meeting client after a change, in plain C types (texts valid until the callback returns). */
typedef struct ymClientState {
    int32_t change;           /**< what changed: a ymClientChange */
    BOOL installed;           /**< YES when the meeting client's bundle is where it was found */
    BOOL running;             /**< YES while a process of this user runs it */
    int32_t transport;        /**< what commands take now: a ymClientTransport (none while the
                                   client does not run) */
    const char *version;      /**< its "CFBundleVersion"; "" when it cannot be read */
    const char *installPath;  /**< where it was found, or last looked for */
} ymClientState;

#ifdef __cplusplus
#include <string>

/// The meeting client after a change (C++).
struct YMClientState_s {
    ymClientChange change = ymClientChangeNone;           ///< what changed
    bool installed = false;                                ///< its bundle is where it was found
    bool running = false;                                  ///< a process of this user runs it
    ymClientTransport transport = ymClientTransportNone;  ///< what commands take now
    std::string version;                                   ///< "CFBundleVersion"; "" when unreadable
    std::string installPath;                               ///< where it was found, or last looked for
};
#endif

#endif
