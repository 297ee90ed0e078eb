// Client changes as 'clientState' events, in the order they happen, while the simulated client
// starts, is killed, is updated and removed; followed only while someone listens.
import assert from 'node:assert/strict';
import { rmSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { finished, install, makeHome, startClient, startCompanion } from './support.mjs';

test('started, quit, updated and removed are told as they happen; the last listener gone, the script ends',
  { timeout: 60000 }, async (t) => {
    const home = makeHome(t);
    install(home, '5.6.0');
    const companion = startCompanion(t, home, `
      function told(state) {
        console.log(state.change + ' ' + JSON.stringify(state));
        if (state.change === 'removed') yumo.off('clientState', told);
      }
      // Listening first: the state told as "now" is the one the changes are told against.
      yumo.on('clientState', told);
      console.log('now ' + JSON.stringify(yumo.clientState()));
    `);
    const state = async (change) => JSON.parse((await companion.line(new RegExp(`^${change} `))).slice(change.length + 1));

    assert.deepEqual(await state('now'), {
      installed: true, running: false, version: '5.6.0', transport: 'none', change: 'none',
      path: path.join(home, 'Applications', 'yumoapp.app'),
    });
    const client = await startClient(t, home);
    assert.deepEqual(await state('started'), {
      installed: true, running: true, version: '5.6.0', transport: 'sockets', change: 'started',
      path: path.join(home, 'Applications', 'yumoapp.app'),
    });
    await client.stop();
    const quit = await state('quit');
    assert.equal(quit.running, false);
    assert.equal(quit.transport, 'none');
    install(home, '6.0.0');
    assert.equal((await state('updated')).version, '6.0.0');
    rmSync(path.join(home, 'Applications', 'yumoapp.app'), { recursive: true });
    assert.equal((await state('removed')).installed, false);

    // Removing the listener in its own call ends the watch: nothing holds the process any more.
    const { code, lines, stderr } = await finished(companion);
    assert.equal(code, 0, stderr);
    assert.deepEqual(lines.map((line) => line.split(' ')[0]), ['now', 'started', 'quit', 'updated', 'removed']);
  });
