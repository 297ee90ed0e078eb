// The JavaScript side of the module's benchmark: the same work as round_trips.c, through the module,
// served by Node's loop. Prints one JSON line like it.
//   node round_trips.mjs MODULE PRESENCE_ROUNDS AUDIO_COMMANDS
import { createRequire } from 'node:module';

const [modulePath, roundsText, commandsText] = process.argv.slice(2);
const yumo = createRequire(import.meta.url)(modulePath);
const rounds = Number(roundsText);
const commands = Number(commandsText);
const headset = { name: 'Headset', index: '1', usbVid: 2830, usbPid: 3 };

yumo.registerAudioDevice(headset);
const samples = [];
for (let i = -10; i < rounds; i++) {
  const start = process.hrtime.bigint();
  await yumo.getPresenceStatus();
  if (i >= 0) samples.push(Number(process.hrtime.bigint() - start) / 1e3);
}
samples.sort((a, b) => a - b);

let audioEvents = 0;
const start = process.hrtime.bigint();
const all = new Promise((resolve) => {
  yumo.on('audio', () => { if (++audioEvents === commands) resolve(); });
});
for (let i = 0; i < commands; i++) yumo.sendAudioCommand(1, headset);
await Promise.race([all, new Promise((resolve) => setTimeout(resolve, 60000).unref())]);
const elapsed = Number(process.hrtime.bigint() - start) / 1e6;
console.log(JSON.stringify({
  presenceMedianMicroseconds: Number(samples[Math.floor(rounds / 2)].toFixed(1)),
  audioCommandsMilliseconds: Number(elapsed.toFixed(1)),
  audioEvents,
}));
yumo.cleanupAudioDevices();
yumo.removeAllListeners();
