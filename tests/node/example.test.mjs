// examples/node_companion.mjs, installed as a user's project has it (node_modules/yumoclientsdk),
// against the simulated client: greets it, survives its restart, and ends on Ctrl-C.
import assert from 'node:assert/strict';
import { copyFileSync, mkdirSync, symlinkSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { finished, install, makeHome, modulePath, startClient, startScript } from './support.mjs';

const example = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../../examples/node_companion.mjs');

test('the example greets the client, survives its restart, and ends on Ctrl-C', { timeout: 60000 }, async (t) => {
  const home = makeHome(t);
  const project = path.join(home, 'project');
  mkdirSync(path.join(project, 'node_modules'), { recursive: true });
  symlinkSync(modulePath, path.join(project, 'node_modules', 'yumoclientsdk'));
  copyFileSync(example, path.join(project, 'node_companion.mjs'));
  install(home, '5.6.0');
  let client = await startClient(t, home);
  const companion = startScript(t, home, [path.join(project, 'node_companion.mjs')]);

  await companion.line(/^now: installed=true running=true version=5.6.0$/);
  await companion.line(/^presence: 1 \(1:OK\)$/);
  await companion.line(/^audio: command 1 for Yumo Headset 1$/);
  await client.stop();
  await companion.line(/^quit: running=false version=5.6.0 transport=none$/);
  client = await startClient(t, home);
  const restarted = companion.lines.length;
  await companion.line(/^started: running=true version=5.6.0 transport=sockets$/, restarted);
  await companion.line(/^registered: true$/, restarted);
  await companion.line(/^audio: command 1 for Yumo Headset 1$/, restarted);

  companion.child.kill('SIGINT');
  const { code, signal, lines, stderr } = await finished(companion);
  assert.equal(signal, null, stderr);
  assert.equal(code, 0, stderr);
  assert.equal(lines.at(-1), 'SIGINT: released 1 device(s)');
});
