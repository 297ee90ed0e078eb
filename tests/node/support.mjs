// What the module's tests share: a home of their own with the simulated meeting client in it, and
// companions run as Node.js processes of their own in that home (the SDK is one per process, and
// reads $HOME once). The module, the simulator and the addon are the built ones ctest names
// (YUMO_MODULE, YMSIM, YUMOCLIENTSDK_ADDON).
import { spawn, execFileSync } from 'node:child_process';
import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { createInterface } from 'node:readline';
import { fileURLToPath } from 'node:url';

const here = path.dirname(fileURLToPath(import.meta.url));
export const modulePath = process.env.YUMO_MODULE || path.resolve(here, '../../node');
export const ymsim = process.env.YMSIM || 'ymsim';

// A fresh home, removed after the test.
export function makeHome(t) {
  const home = mkdtempSync(path.join(tmpdir(), 'ymnode-'));
  t.after(() => rmSync(home, { recursive: true, force: true }));
  return home;
}

export function install(home, version) {
  execFileSync(ymsim, ['install', '--version', version], { env: { ...process.env, HOME: home }, stdio: 'ignore' });
}

export function clientExecutable(home) {
  return path.join(home, 'Applications', 'yumoapp.app', 'Contents', 'MacOS', 'yumoapp');
}

// A process whose output lines can be waited for.
class Process {
  constructor(child) {
    this.child = child;
    this.lines = [];
    this.waiters = [];
    this.closed = false;
    // 'close' comes once the output is read to its end.
    this.exited = new Promise((resolve) => child.on('close', (code, signal) => {
      this.closed = true;
      this.#settle();
      resolve({ code, signal });
    }));
    createInterface({ input: child.stdout }).on('line', (line) => {
      this.lines.push(line);
      this.#settle();
    });
    this.stderr = '';
    child.stderr?.on('data', (chunk) => { this.stderr += chunk; });
  }

  #settle() {
    this.waiters = this.waiters.filter((waiter) => !waiter());
  }

  // The first line (from `from` on) matching `pattern`; rejects when the process ends without one.
  line(pattern, from = 0) {
    return new Promise((resolve, reject) => {
      const look = () => {
        const found = this.lines.slice(from).find((line) => pattern.test(line));
        if (found !== undefined) { resolve(found); return true; }
        if (this.closed) {
          reject(new Error(`no line matching ${pattern}; the process printed:\n${this.lines.join('\n')}\n${this.stderr}`));
          return true;
        }
        return false;
      };
      if (!look()) this.waiters.push(look);
    });
  }

  async stop(signal = 'SIGKILL') {
    if (!this.closed) this.child.kill(signal);
    return this.exited;
  }
}

// Starts the simulated meeting client installed in `home`; stopped after the test.
export async function startClient(t, home, args = []) {
  const client = new Process(spawn(clientExecutable(home), ['--quiet', ...args], {
    env: { ...process.env, HOME: home }, stdio: ['ignore', 'pipe', 'ignore'],
  }));
  t.after(() => client.stop());
  await client.line(/^ready$/);
  return client;
}

// Runs `source` (CommonJS, with `yumo` bound to the module) as a companion in `home`; stopped
// after the test.
export function startCompanion(t, home, source, env = {}) {
  const file = path.join(home, `companion-${Math.random().toString(36).slice(2)}.cjs`);
  writeFileSync(file, `'use strict';\nconst yumo = require(${JSON.stringify(modulePath)});\n${source}\n`);
  return startScript(t, home, [file], env);
}

export function startScript(t, home, args, env = {}) {
  const companion = new Process(spawn(process.execPath, args, {
    env: { ...process.env, HOME: home, ...env }, stdio: ['ignore', 'pipe', 'pipe'],
  }));
  t.after(() => companion.stop());
  return companion;
}

// The companion's whole run: its exit and every line it printed, parsed where it is JSON.
export async function finished(companion) {
  const { code, signal } = await companion.exited;
  return { code, signal, lines: companion.lines, stderr: companion.stderr };
}
