#!/usr/bin/python3
"""A companion on an asyncio loop that follows the meeting client: the SDK's main loop is served
by the asyncio loop (add_reader), the client's coming and going is printed, and each time the
client starts the companion registers its headset again and asks for the presence status. Runs
until SIGINT or SIGTERM, then exits 0."""
import asyncio
import signal

import yumoclientsdk as ym

NAMES = {ym.CLIENT_CHANGE_NONE: "now", ym.CLIENT_STARTED: "started", ym.CLIENT_QUIT: "quit",
         ym.CLIENT_INSTALLED: "installed", ym.CLIENT_REMOVED: "removed", ym.CLIENT_UPDATED: "updated",
         ym.CLIENT_MOVED: "moved"}
TRANSPORTS = {ym.TRANSPORT_NONE: "none", ym.TRANSPORT_SOCKETS: "sockets",
              ym.TRANSPORT_NOTIFICATIONS: "notifications"}


def show(state: ym.ClientState) -> None:
    print(f"{NAMES.get(state.change, '?')}: installed={'yes' if state.installed else 'no'} "
          f"running={'yes' if state.running else 'no'} version={state.version or '(none)'} "
          f"transport={TRANSPORTS.get(state.transport, '?')}", flush=True)


def on_client_state(state: ym.ClientState) -> None:
    show(state)
    if state.change == ym.CLIENT_STARTED:
        ym.register_audio_device("Headset", "1", 2830, 3)
        ym.get_im_presence_status()


async def main() -> None:
    loop = asyncio.get_running_loop()
    stopped = asyncio.Event()
    for number in (signal.SIGINT, signal.SIGTERM):
        loop.add_signal_handler(number, stopped.set)
    ym.on_presence_status(lambda status: print(f"presence: {status.presence_status}", flush=True))
    ym.on_client_state(on_client_state)
    loop.add_reader(ym.main_loop_fd(), ym.dispatch)
    show(ym.client_state())
    await stopped.wait()
    loop.remove_reader(ym.main_loop_fd())
    ym.on_client_state(None)
    ym.cleanup_audio_devices()


asyncio.run(main())
