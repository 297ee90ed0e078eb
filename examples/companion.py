#!/usr/bin/python3
"""A companion in Python, on the SDK's loop: registers its headset, asks for the presence status,
sends an audio command, and prints the answers as they arrive. Exits 0 once both answers came."""
import sys

import yumoclientsdk as ym

presence = []
audio = []
ym.on_presence_status(presence.append)
ym.on_audio_info(audio.append)
ym.register_audio_device("Headset", "1", 2830, 3)

status = ym.get_im_presence_status()
print("get_im_presence_status:", status, ym.error_text())
if status == ym.COMMAND_SENT:
    status = ym.set_audio_cmd(5, "1", "Headset", 2830, 3)
    print("set_audio_cmd:", status)
if status == ym.COMMAND_SENT:
    ym.run_until(lambda: presence and audio, 5)
for answer in presence + audio:
    print(answer)
ym.cleanup_audio_devices()
sys.exit(0 if presence and audio else 1)
