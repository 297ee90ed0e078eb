'use strict';
// Finds what the native half is compiled with and prints it, one folder a line:
//   include=<Node.js headers, with node_api.h and uv.h>
//   addon-api=<node-addon-api, with napi.h>
// Exits 1 with a line on standard error naming what is missing. Used by the project's CMake build
// and by scripts/install.js when a package has to build its addon.
const fs = require('node:fs');
const path = require('node:path');

function nodeHeaders() {
  const candidates = [
    process.env.npm_config_nodedir && path.join(process.env.npm_config_nodedir, 'include', 'node'),
    path.resolve(path.dirname(process.execPath), '..', 'include', 'node'),
    '/usr/include/node',
    '/usr/local/include/node',
  ];
  return candidates.find((dir) => dir && fs.existsSync(path.join(dir, 'node_api.h')) &&
    fs.existsSync(path.join(dir, 'uv.h')));
}

function addonApi() {
  const packageDir = path.resolve(__dirname, '..');
  const paths = [
    packageDir,
    path.resolve(path.dirname(process.execPath), '..', 'lib', 'node_modules'),
    '/usr/share/nodejs',
    '/usr/lib/nodejs',
    '/usr/lib/node_modules',
    '/usr/local/lib/node_modules',
  ];
  try {
    return path.dirname(require.resolve('node-addon-api/package.json', { paths }));
  } catch {
    return undefined;
  }
}

const include = nodeHeaders();
const api = addonApi();
if (!include) {
  console.error('locate: no Node.js headers (node_api.h, uv.h) next to ' + process.execPath +
    ' or in /usr/include/node: install libnode-dev, or a Node.js that carries its headers');
}
if (!api) {
  console.error('locate: no node-addon-api: apt-get install node-addon-api, or npm install -g node-addon-api');
}
if (!include || !api) process.exit(1);
console.log('include=' + include);
console.log('addon-api=' + api);
