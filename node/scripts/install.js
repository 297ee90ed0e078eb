'use strict';
// At `npm install`: uses the addon the package carries for this platform (built by the project, or
// by Debian's package), or builds one with the system's C++ compiler, offline: Node.js's headers,
// node-addon-api (scripts/locate.js finds them) and the SDK's headers and library
// (libyumoclientsdk-dev) must be on the machine.
const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');

const packageDir = path.resolve(__dirname, '..');
const release = path.join(packageDir, 'build', 'Release');
const carried = [
  path.join(release, 'yumoclientsdk.node'),
  path.join(packageDir, 'prebuilds', `${process.platform}-${process.arch}`, 'yumoclientsdk.node'),
].find((file) => fs.existsSync(file));
if (carried) process.exit(0);

function located() {
  const output = execFileSync(process.execPath, [path.join(__dirname, 'locate.js')], { encoding: 'utf8' });
  return Object.fromEntries(output.trim().split('\n').map((line) => line.split(/=(.*)/s, 2)));
}

function sdkFlags() {
  try {
    return execFileSync('pkg-config', ['--cflags', '--libs', 'YumoClientSdk'], { encoding: 'utf8' }).trim().split(/\s+/);
  } catch {
    return ['-lYumoClientSdk'];
  }
}

try {
  const found = located();
  const sources = fs.readdirSync(path.join(packageDir, 'src')).filter((file) => file.endsWith('.cpp'))
    .map((file) => path.join(packageDir, 'src', file));
  fs.mkdirSync(release, { recursive: true });
  const compiler = process.env.CXX || 'c++';
  const output = path.join(release, 'yumoclientsdk.node');
  console.log(`yumoclientsdk: building ${path.relative(packageDir, output)} with ${compiler}`);
  execFileSync(compiler, [
    '-std=c++17', '-O2', '-fPIC', '-shared', '-fvisibility=hidden',
    '-DNAPI_VERSION=8', '-DNODE_ADDON_API_DISABLE_CPP_EXCEPTIONS', '-DNODE_ADDON_API_DISABLE_DEPRECATED',
    '-isystem', found.include, '-isystem', found['addon-api'],
    ...sources, '-o', output, ...sdkFlags(),
  ], { stdio: 'inherit' });
} catch (error) {
  console.error('yumoclientsdk: the package carries no addon for ' + `${process.platform}-${process.arch}` +
    ' and cannot build one: ' + (error.stderr || error.message).toString().trim());
  process.exit(1);
}
