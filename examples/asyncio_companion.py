#!/usr/bin/python3
"""A companion on an asyncio loop that follows the meeting client: the SDK's main loop is served
by the asyncio loop (ym.attach), the client's coming and going is printed, and each time the
client starts the companion registers its headset again, asks for the presence status and awaits
the answer (ym.wait_presence_status). Runs until SIGINT or SIGTERM, then exits 0."""
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


async def ask_presence() -> None:
    if ym.get_im_presence_status() != ym.COMMAND_SENT:
        return
    try:
        status = await ym.wait_presence_status(timeout=5)
    except asyncio.TimeoutError:
        return  # the client went away before it answered; it is asked again when it starts
    print(f"presence: {status.presence_status}", flush=True)


# The presence requests under way: the loop keeps only weak references to its tasks.
asking: set[asyncio.Task[None]] = set()


def on_client_state(state: ym.ClientState) -> None:
    show(state)
    if state.change == ym.CLIENT_STARTED:
        ym.register_audio_device(name="Headset", index="1", usb_vid=2830, usb_pid=3)
        task = asyncio.get_running_loop().create_task(ask_presence())
        asking.add(task)
        task.add_done_callback(asking.discard)


async def main() -> None:
    loop = asyncio.get_running_loop()
    stopped = asyncio.Event()
    for number in (signal.SIGINT, signal.SIGTERM):
        loop.add_signal_handler(number, stopped.set)
    ym.on_client_state(on_client_state)
    ym.attach(loop)
    show(ym.client_state())
    await stopped.wait()
    ym.detach(loop)
    ym.on_client_state(None)
    ym.cleanup_audio_devices()


asyncio.run(main())
