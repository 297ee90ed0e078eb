// A companion in JavaScript: registers its headset, asks the user's presence, prints the audio
// events of its own devices and the meeting client's comings and goings, registers again when the
// client starts anew, and on Ctrl-C (or SIGTERM) releases its devices and ends.
//
//   npm install ./yumoclientsdk-1.2.0.tgz        (the package's tarball: cd node && npm pack)
//   npm install /usr/lib/x86_64-linux-gnu/nodejs/yumoclientsdk      (or Debian's node-yumoclientsdk)
//   node node_companion.mjs
import yumo from 'yumoclientsdk';

const headset = { name: 'Yumo Headset', index: 1, usbVid: 0x0b0e, usbPid: 0x0003 };
const MUTE = 1;  // an audio command of the host process's own numbering

async function greet() {
  console.log(`registered: ${yumo.registerAudioDevice(headset)}`);
  try {
    const status = await yumo.getPresenceStatus({ timeout: 5000 });
    console.log(`presence: ${status.presenceStatus} (${status.code}:${status.text})`);
  } catch (error) {
    console.log(`presence: none (${error.message})`);
  }
  console.log(`sent: ${yumo.sendAudioCommand(MUTE, headset)}`);
}

yumo.on('audio', (event) => console.log(`audio: command ${event.command} for ${event.name} ${event.index}`));
yumo.on('clientState', (state) => {
  console.log(`${state.change}: running=${state.running} version=${state.version} transport=${state.transport}`);
  if (state.change === 'started') greet();
});

function end(signal) {
  console.log(`${signal}: released ${yumo.cleanupAudioDevices()} device(s)`);
  // With no listener left the module lets go of Node's loop, and the process ends by itself.
  yumo.removeAllListeners();
  process.removeAllListeners('SIGINT');
  process.removeAllListeners('SIGTERM');
}
process.once('SIGINT', end);
process.once('SIGTERM', end);

const now = yumo.clientState();
console.log(`now: installed=${now.installed} running=${now.running} version=${now.version}`);
if (now.running) greet();
