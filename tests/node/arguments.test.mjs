// Every argument is checked before anything reaches the SDK, with Node's errors and codes; the
// module refuses worker threads; a script that is done exits by itself.
import assert from 'node:assert/strict';
import { createRequire } from 'node:module';
import { test } from 'node:test';
import { Worker } from 'node:worker_threads';

import { finished, makeHome, modulePath, startCompanion } from './support.mjs';

const require = createRequire(import.meta.url);
const yumo = require(modulePath);
const headset = { name: 'Headset', index: 1, usbVid: 2830, usbPid: 3 };
const type = (argument) => ({ name: 'TypeError', code: 'ERR_INVALID_ARG_TYPE', message: new RegExp(`"${argument}"`) });
const value = (argument) => ({ name: 'TypeError', code: 'ERR_INVALID_ARG_VALUE', message: new RegExp(`"${argument}"`) });
const range = (argument) => ({ name: 'RangeError', code: 'ERR_OUT_OF_RANGE', message: new RegExp(`"${argument}"`) });

test('refused arguments throw, naming the argument and what it takes', () => {
  const refused = [
    [() => yumo.registerAudioDevice(), type('device')],
    [() => yumo.registerAudioDevice(null), type('device')],
    [() => yumo.registerAudioDevice('Headset'), type('device')],
    [() => yumo.registerAudioDevice({ ...headset, name: 5 }), type('device.name')],
    [() => yumo.registerAudioDevice({ ...headset, name: '' }), value('device.name')],
    [() => yumo.registerAudioDevice({ ...headset, name: 'Head\0set' }), value('device.name')],
    [() => yumo.registerAudioDevice({ ...headset, index: undefined }), type('device.index')],
    [() => yumo.registerAudioDevice({ ...headset, index: -1 }), range('device.index')],
    [() => yumo.registerAudioDevice({ ...headset, index: 1.5 }), range('device.index')],
    [() => yumo.registerAudioDevice({ ...headset, index: '1\0' }), value('device.index')],
    [() => yumo.registerAudioDevice({ ...headset, usbVid: 65536 }), range('device.usbVid')],
    [() => yumo.registerAudioDevice({ ...headset, usbVid: -1 }), range('device.usbVid')],
    [() => yumo.registerAudioDevice({ ...headset, usbPid: '0x0003' }), type('device.usbPid')],
    [() => yumo.registerAudioDevice({ ...headset, usbPid: undefined }), type('device.usbPid')],
    [() => yumo.sendAudioCommand('7', headset), type('command')],
    [() => yumo.sendAudioCommand(2 ** 31, headset), range('command')],
    [() => yumo.sendAudioCommand(7), type('device')],
    [() => yumo.sendAudioCommand(7, { name: 'Headset', index: 1, usbVid: 70000 }), range('device.usbVid')],
    [() => yumo.isRegisteredDevice({ name: 'Headset' }), type('device.index')],
    [() => yumo.configureLog({ sizeLimit: 1000 }), range('options.sizeLimit')],
    [() => yumo.configureLog({ takesStandardError: 'no' }), type('options.takesStandardError')],
    [() => yumo.configureLog(true), type('options')],
    [() => yumo.registerFeature(-1), range('mask')],
    [() => yumo.setErrorCode('5'), type('code')],
  ];
  for (const [call, expected] of refused) assert.throws(call, expected, call.toString());
});

test('refused arguments of a Promise reject it', async () => {
  await assert.rejects(yumo.getPresenceStatus({ timeout: 0 }), range('options.timeout'));
  await assert.rejects(yumo.getPresenceStatus({ timeout: 2 ** 31 }), range('options.timeout'));
  await assert.rejects(yumo.getPresenceStatus('fast'), type('options'));
  await assert.rejects(yumo.checkAppCodeSign(5), type('bundlePath'));
  await assert.rejects(yumo.checkPackageCodeSign('/tmp/a\0.pkg'), value('packagePath'));
});

test('the native half refuses what the JavaScript would not hand it, without harm', () => {
  const native = require(process.env.YUMOCLIENTSDK_ADDON || require.resolve('../../build/node/yumoclientsdk.node'));
  assert.throws(() => native.registerAudioDevice(1, 2, 3, 4), { name: 'TypeError', message: 'argument 1 must be a string' });
  assert.throws(() => native.sendAudioCommand(7, 'a', '1', 'x', 0), { name: 'TypeError', message: 'argument 4 must be a number' });
  assert.throws(() => native.start(42), { name: 'TypeError' });
});

test('a worker thread is refused with a clear error', async () => {
  const worker = new Worker(`require(${JSON.stringify(modulePath)})`, { eval: true });
  const [error] = await new Promise((resolve) => worker.once('error', (...args) => resolve(args)));
  assert.match(error.message, /^yumoclientsdk: load it on the main thread/);
});

test('a script that is done exits by itself: after its listeners go, and after its last request',
  { timeout: 60000 }, async (t) => {
    const home = makeHome(t);
    const scripts = [
      `const f = () => {}; yumo.on('audio', f); yumo.on('presence', f); yumo.off('audio', f); yumo.removeListener('presence', f);`,
      `yumo.on('clientState', () => {}); yumo.once('audio', () => {}); yumo.removeAllListeners();`,
      // Refused at once (the client is not there): nothing is left waiting.
      `yumo.getPresenceStatus().catch(() => console.log('refused'));`,
      `yumo.registerAudioDevice({ name: 'Headset', index: 1, usbVid: 1, usbPid: 2 }); yumo.cleanupAudioDevices();`,
    ];
    for (const source of scripts) {
      const { code, stderr } = await finished(startCompanion(t, home, source));
      assert.equal(code, 0, `${source}\n${stderr}`);
    }
  });
