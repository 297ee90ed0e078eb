/**
 * @file
 * ymAudioCommand.h: the audio command codes and presence statuses the SDK knows. Usable from C and
 * C++.
 *
 * Audio command codes (SetAudioCmd, ymSdkAudioInfo) and presence statuses (ymSdkIMPresenceStatus)
 * are numbers the meeting client and its host process define; the SDK carries them unchanged both
 * ways and gives a meaning to one code only, the release below. A companion sends the codes its
 * devices produce, acts on the events it knows, and leaves every other code alone: a code it does
 * not know is not an error, and is best passed over without a word (a newer host process may send
 * codes an older companion has never heard of).
 */
#ifndef YUMOCLIENTSDK_YMAUDIOCOMMAND_H
#define YUMOCLIENTSDK_YMAUDIOCOMMAND_H

/** The audio command codes with a meaning in the SDK. */
typedef enum ymAudioCommand {
    /** The device is released: the SDK sends it itself, for each device of this process that it
     * removes from the shared list when cleaning up (CleanupAudioDevices, ymCleanupAudioDevices),
     * with the device's name and index and USB identifiers 0. A companion may send it too when
     * one of its devices goes away. */
    ymAudioCommandRelease = 101
} ymAudioCommand;

/** The presence status of an answer that carries none. Every other value is the meeting client's
 * own numbering of the user's status, shown or passed on as it comes. */
typedef enum ymPresenceStatusValue {
    ymPresenceStatusNone = 0
} ymPresenceStatusValue;

#endif
