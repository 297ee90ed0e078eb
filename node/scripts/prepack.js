'use strict';
// Before `npm pack`: puts the addon of the tree's build (or the file $YUMOCLIENTSDK_ADDON names)
// into prebuilds/<platform>-<arch>/, so that the package installs without a compiler. With
// --clean (after the pack): removes prebuilds/ again, so that the tree's own build is what the tree
// loads.
const fs = require('node:fs');
const path = require('node:path');

const packageDir = path.resolve(__dirname, '..');
const prebuilds = path.join(packageDir, 'prebuilds');

if (process.argv[2] === '--clean') {
  fs.rmSync(prebuilds, { recursive: true, force: true });
  process.exit(0);
}
const built = process.env.YUMOCLIENTSDK_ADDON || path.join(packageDir, '..', 'build', 'node', 'yumoclientsdk.node');
if (!fs.existsSync(built)) {
  console.warn(`prepack: no built addon at ${built}: the package will build its own at install ` +
    '(a C++ compiler, Node.js\'s headers, node-addon-api and libyumoclientsdk-dev are needed there)');
  process.exit(0);
}
const target = path.join(prebuilds, `${process.platform}-${process.arch}`);
fs.mkdirSync(target, { recursive: true });
fs.copyFileSync(built, path.join(target, 'yumoclientsdk.node'));
console.log(`prepack: ${built} -> ${path.relative(packageDir, target)}/yumoclientsdk.node`);
