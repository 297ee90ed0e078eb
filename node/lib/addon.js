'use strict';
// Finds and loads the native half, yumoclientsdk.node. In order:
//   $YUMOCLIENTSDK_ADDON                          a file named by the environment
//   <package>/build/Release/yumoclientsdk.node    built at install, or installed by Debian's package
//   <package>/prebuilds/<platform>-<arch>/...     carried by the npm package
//   <package>/../build/node/yumoclientsdk.node    the build of the source tree the package sits in
// The native half links libYumoClientSdk.so.1: the tree's build finds the library beside it, the
// others in the system's library path (Debian's libyumoclientsdk1).
const fs = require('node:fs');
const path = require('node:path');

const packageDir = path.resolve(__dirname, '..');
const name = 'yumoclientsdk.node';

function candidates() {
  return [
    process.env.YUMOCLIENTSDK_ADDON,
    path.join(packageDir, 'build', 'Release', name),
    path.join(packageDir, 'prebuilds', `${process.platform}-${process.arch}`, name),
    path.join(packageDir, '..', 'build', 'node', name),
  ].filter(Boolean);
}

function load() {
  const tried = candidates();
  const file = tried.find((candidate) => fs.existsSync(candidate));
  if (!file) {
    throw new Error('yumoclientsdk: no native addon for ' + `${process.platform}-${process.arch}` +
      ' (looked for ' + tried.join(', ') + '): reinstall the package where a C++ compiler and ' +
      'libyumoclientsdk-dev are there, or set YUMOCLIENTSDK_ADDON');
  }
  try {
    return require(file);
  } catch (error) {
    if (/libYumoClientSdk\.so/.test(String(error.message))) {
      error.message = 'yumoclientsdk: ' + error.message +
        ' (install the SDK\'s library: apt-get install libyumoclientsdk1)';
    }
    throw error;
  }
}

module.exports = { load };
