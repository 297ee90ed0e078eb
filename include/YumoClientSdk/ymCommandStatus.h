/**
 * @file
 * ymCommandStatus.h: what a command of the facade answers. Usable from C and C++.
 *
 * GetIMPresenceStatus and SetAudioCmd (and their C forms) answer a signed 32-bit number; these are
 * its values, named. The functions keep answering plain integers; compare them with these names.
 */
#ifndef YUMOCLIENTSDK_YMCOMMANDSTATUS_H
#define YUMOCLIENTSDK_YMCOMMANDSTATUS_H

/** The status of a command. Only 0 means that anything was sent. */
typedef enum ymCommandStatus {
    /** The text was handed to a transport. No answer is awaited: one reaches the delegate later, or
     * none does (a send the transport could not complete also answers this). */
    ymCommandStatusSent = 0,
    /** The meeting client is not installed ("0:Error YumoClientNotInstall"). The status check
     * reports a client that is not installed as not running, so commands answer 5 instead; this
     * value comes only from ymAPIErrorMgr::setErrorCode(). */
    ymCommandStatusClientNotInstalled = 2,
    /** The meeting client is not running, or not installed ("0:Error YumoClientNotRunning"). */
    ymCommandStatusClientNotRunning = 5,
    /** The meeting client's version is not supported ("0:Error YumoClientNoSupportedVersion"); as
     * with 2, only ever set by a caller. */
    ymCommandStatusClientVersionNotSupported = 6,
    /** The user is not signed in to the meeting client ("0:Error YumoClientNotSignIn"); only ever
     * set by a caller. */
    ymCommandStatusNotSignedIn = 7,
    /** No transport object to send with (a channel or the notification manager was set to nil). */
    ymCommandStatusNoTransport = 8
} ymCommandStatus;

#endif
