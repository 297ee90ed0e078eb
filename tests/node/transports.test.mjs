// The module against the simulated meeting client, over both transports: presence answered,
// audio events for the companion's own devices only, the release on clean-up, refusals and time
// limits as rejections, and a companion that is done exits by itself.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { finished, install, makeHome, startClient, startCompanion } from './support.mjs';

const MAIN_JOB = `
(async () => {
  const print = (label, value) => console.log(label + ' ' + JSON.stringify(value));
  const events = [];
  yumo.on('audio', (event) => events.push(event));
  yumo.on('presence', (status) => print('presence-event', status));
  print('registered', yumo.registerAudioDevice({ name: 'Headset', index: 1, usbVid: 2830, usbPid: 3 }));
  print('presence', await yumo.getPresenceStatus({ timeout: 20000 }));
  // Another companion's device first: its event, which comes back first, is not this one's.
  print('sent', [yumo.sendAudioCommand(7, { name: 'Speaker', index: '2' }),
                 yumo.sendAudioCommand(8, { name: 'Headset', index: 1, usbVid: 2830, usbPid: 3 })]);
  await new Promise((resolve) => yumo.once('audio', resolve));
  print('audio', events);
  print('removed', yumo.cleanupAudioDevices());
  print('registered-after', yumo.isRegisteredDevice({ name: 'Headset', index: '1' }));
  print('registered-other', yumo.isRegisteredDevice({ name: 'Speaker', index: 2 }));
  yumo.removeAllListeners();
})();
`;

for (const [transport, version] of [['sockets', '5.6.0'], ['notifications', '5.5.0']]) {
  test(`over ${transport}: presence, the companion's own audio events, the release, and an exit by itself`,
    { timeout: 60000 }, async (t) => {
      const home = makeHome(t);
      install(home, version);
      await startClient(t, home, ['--presence', '3']);
      const { code, lines, stderr } = await finished(startCompanion(t, home, MAIN_JOB));
      assert.equal(code, 0, stderr);
      const said = Object.fromEntries(lines.map((line) => [line.split(' ')[0], JSON.parse(line.slice(line.indexOf(' ') + 1))]));
      assert.equal(said.registered, true);
      assert.deepEqual(said.presence, { presenceStatus: 3, code: 1, text: 'OK', error: false });
      assert.deepEqual(said['presence-event'], said.presence, 'the answer is told to listeners as well');
      assert.deepEqual(said.sent, [0, 0]);
      assert.deepEqual(said.audio, [{ command: 8, name: 'Headset', index: '1' }]);
      assert.equal(said.removed, 1);
      // Registered in this run, whatever the clean-up did; the other companion's device never was.
      assert.equal(said['registered-after'], true);
      assert.equal(said['registered-other'], false);
    });
}

test('a refused request rejects with the status as its code; a command answers the status', { timeout: 60000 }, async (t) => {
  const home = makeHome(t);
  install(home, '5.6.0');  // installed, not running
  const { code, lines, stderr } = await finished(startCompanion(t, home, `
    console.log('sent ' + yumo.sendAudioCommand(7, { name: 'Headset', index: 1 }));
    console.log('check ' + yumo.checkClientError() + ' ' + yumo.errorText());
    yumo.getPresenceStatus().then(
      () => console.log('answered'),
      (error) => console.log('rejected ' + (error instanceof Error) + ' ' + error.code + ' ' + error.message));
  `));
  assert.equal(code, 0, stderr);
  assert.deepEqual(lines, [
    'sent 5',
    'check 5 0:Error YumoClientNotRunning',
    'rejected true 5 yumoclientsdk: the presence request was not sent: the meeting client is not running (status 5)',
  ]);
});

test('a client that takes the request and never answers: the Promise rejects in its time, and the script ends',
  { timeout: 60000 }, async (t) => {
    const home = makeHome(t);
    install(home, '5.6.0');
    const client = await startClient(t, home);
    client.child.kill('SIGSTOP');
    t.after(() => client.child.kill('SIGCONT'));
    const { code, lines, stderr } = await finished(startCompanion(t, home, `
      yumo.getPresenceStatus({ timeout: 200 }).then(
        () => console.log('answered'),
        (error) => console.log('rejected ' + error.code + ' ' + error.message));
    `));
    assert.equal(code, 0, stderr);
    assert.deepEqual(lines, ['rejected ETIMEDOUT yumoclientsdk: no presence answer within 200 ms']);
  });
