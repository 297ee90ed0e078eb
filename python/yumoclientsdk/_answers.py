"""What the SDK hands the companion, as Python values."""
from __future__ import annotations

from typing import NamedTuple, Optional

from . import _native


class PresenceStatus(NamedTuple):
    """The meeting client's answer to a presence request."""
    error: bool              # the answer's result reads as failure ("0:...")
    code: int                # the result's code, the part before ":"
    text: Optional[str]      # the result's text, the part after ":"; None when there is none
    presence_status: int     # the user's presence status, as the meeting client numbers it; 0 when the answer has none


class AudioInfo(NamedTuple):
    """An audio event from the host process for a device this process registered."""
    audio_cmd: int                # the command, as the host process numbers it; 0 when the event has none
    device_index: Optional[str]   # "0" when the event names no index
    device_name: Optional[str]    # None when the event names no device


class ClientState(NamedTuple):
    """The meeting client after a change (change CLIENT_CHANGE_NONE: as it is now)."""
    change: int              # CLIENT_STARTED, CLIENT_QUIT, ...
    installed: bool          # its bundle is where it was found
    running: bool            # a process of this user runs it
    transport: int           # TRANSPORT_SOCKETS, TRANSPORT_NOTIFICATIONS, or TRANSPORT_NONE when it does not run
    version: str             # its "CFBundleVersion"; "" when it cannot be read
    install_path: str        # where it was found, or last looked for


def presence_status(record: _native.PresenceRecord) -> PresenceStatus:
    return PresenceStatus(bool(record.error), int(record.code), _native.decoded(record.text),
                          int(record.presenceStatus))


def audio_info(record: _native.AudioRecord) -> AudioInfo:
    return AudioInfo(int(record.audioCmd), _native.decoded(record.deviceIndex), _native.decoded(record.deviceName))


def client_state(record: _native.ClientStateRecord) -> ClientState:
    return ClientState(int(record.change), bool(record.installed), bool(record.running), int(record.transport),
                       _native.decoded(record.version) or "", _native.decoded(record.installPath) or "")
