#!/usr/bin/python3
"""A companion in Python, on the SDK's loop: registers its headset, asks for the presence status,
sends an audio command, and prints the answers as they arrive. Exits 0 once both answers came."""
import sys

import yumoclientsdk as ym

presence: list[ym.PresenceStatus] = []
audio: list[ym.AudioInfo] = []
ym.on_presence_status(presence.append)
ym.on_audio_info(audio.append)
ym.register_audio_device(name="Headset", index="1", usb_vid=2830, usb_pid=3)

status = ym.get_im_presence_status()
print("get_im_presence_status:", status, ym.error_text())
if status == ym.COMMAND_SENT:
    status = ym.set_audio_cmd(5, device_index="1", device_name="Headset", usb_vid=2830, usb_pid=3)
    print("set_audio_cmd:", status)
if status == ym.COMMAND_SENT:
    ym.run_until(lambda: presence and audio, timeout=5)
for answer in presence + audio:
    print(answer)
ym.cleanup_audio_devices()
sys.exit(0 if presence and audio else 1)
