/// @file
#pragma once

#include <cstdint>

#include "ymBase.h"

/// ymLogHelper: sends the SDK's log to the file "yumoclientsdk.log" in the app-group container.
///
/// By default the SDK takes the process's standard error for its log when the facade is created:
/// a companion's own diagnostics land in the log file too. A companion that wants to keep its
/// standard error calls setTakesStandardError(NO) first (or is started with the environment
/// variable `YUMOCLIENTSDK_STDERR=keep`); the SDK then writes its lines to the log file only.
/// While the process runs, the log is started afresh once it reaches 10 MiB (setLogSizeLimit(), or
/// `YUMOCLIENTSDK_LOG_LIMIT` in bytes).
///
/// The file is shared by every process of the user that uses the SDK. Starting it afresh empties
/// it in place, under a lock on the file that one process at a time takes (a process that finds
/// another at it leaves the cut to that one), so every process goes on writing into the same
/// file and no line written after a cut is lost. A process whose file was removed or replaced by
/// anything else opens the path anew when it next looks at the log's size. Writing a line never
/// raises SIGPIPE, also when the lines go to a pipe whose reader is gone.
class YM_EXPORT ymLogHelper {
public:
    /// Sends the SDK's log to the log file, in append mode. Taking standard error (the default), it
    /// reopens the process's standard error on the file, so that every line written to standard
    /// error from then on (the SDK's, the companion's, and the error output of commands the SDK
    /// runs) lands there; leaving it alone, only the SDK's lines go to the file. The container is
    /// created when missing. With `fresh` YES any existing log is emptied first; with NO it is
    /// emptied only when it has reached 102400 bytes. It is emptied in place rather than deleted,
    /// so that other processes writing it keep writing into it; one that cannot be emptied (no
    /// regular file, or not writable) is deleted and the new log starts empty. Nothing is
    /// reported: when the container or the file cannot be had, the lines go where they went
    /// before. The redirection is never undone.
    static void redirectNSLog(BOOL fresh);

    /// Chooses whether the SDK takes standard error for its log (YES, the default) or writes its
    /// lines to the log file only and leaves standard error alone (NO). Call it before the facade
    /// exists; the variable `YUMOCLIENTSDK_STDERR=keep` chooses NO for a program that does not call
    /// it. Answers NO, changing nothing, once the log has been redirected.
    static BOOL setTakesStandardError(BOOL takes);

    /// Sets the size at which the log is started afresh while the process runs (emptied in place,
    /// as at start-up): 10 MiB unless set, 0 for never. The size is looked at after every
    /// sixteenth of it written by the process (at most every 64 KiB) and once a second while it
    /// writes, so the file may pass it by that much for each process writing it. Any time. Answers NO, changing nothing, for a size below 65536 other than 0. The variable
    /// `YUMOCLIENTSDK_LOG_LIMIT` (bytes) sets it for a program that does not call this.
    static BOOL setLogSizeLimit(uint64_t bytes);
};
