'use strict';
// yumoclientsdk: the YumoClientSdk for Node.js and Electron's main process.
//
// The module is an EventEmitter: 'audio' (an audio event for one of this process's devices),
// 'presence' (each presence answer) and 'clientState' (each change of the meeting client). They are
// delivered on Node's own loop, which waits on the SDK's main loop; while no listener and no
// presence request needs the SDK, the module does not keep the process alive.
const { EventEmitter } = require('node:events');
const { isMainThread } = require('node:worker_threads');
const checks = require('./lib/checks.js');

if (!isMainThread) {
  throw new Error('yumoclientsdk: load it on the main thread: a process has one SDK, served by the ' +
    'main thread\'s loop; hand what it tells to workers with postMessage');
}
const native = require('./lib/addon.js').load();

// Unless the environment says otherwise, the SDK writes its lines to its log file only and leaves
// standard error (console.error, uncaught exceptions) where it was.
if (process.env.YUMOCLIENTSDK_STDERR === undefined) native.setTakesStandardError(false);

const CommandStatus = Object.freeze({
  SENT: 0,
  CLIENT_NOT_INSTALLED: 2,
  CLIENT_NOT_RUNNING: 5,
  CLIENT_VERSION_NOT_SUPPORTED: 6,
  NOT_SIGNED_IN: 7,
  NO_TRANSPORT: 8,
});
const AudioCommand = Object.freeze({ RELEASE: 101 });
const REFUSALS = {
  2: 'the meeting client is not installed',
  5: 'the meeting client is not running',
  6: 'the meeting client\'s version is not supported',
  7: 'the user is not signed in to the meeting client',
  8: 'there is no transport to send with',
};
const PRESENCE_TIMEOUT = 5000;
const DELIVERED = ['audio', 'presence', 'clientState'];

class YumoClientSdk extends EventEmitter {
  // removeAllListeners() with no name removes the module's own watch of its listeners too: it is
  // put back, and what is still needed is looked at again.
  removeAllListeners(...names) {
    super.removeAllListeners(...names);
    watchListeners();
    refresh();
    return this;
  }
}

const sdk = new YumoClientSdk();
const pending = []; // presence requests waiting for an answer, oldest first

// Node's loop is kept alive while a listener or a request needs the SDK; client changes are followed
// while someone listens for them. The native half is told only of a change: a presence request
// looks here twice.
let held = false;
let following = false;

function hold(needed) {
  if (needed !== held) native.setHeld((held = needed));
}

function follow(needed) {
  if (needed !== following) native.followClientState((following = needed));
}

function refresh() {
  hold(pending.length > 0 || DELIVERED.some((name) => sdk.listenerCount(name) > 0));
  follow(sdk.listenerCount('clientState') > 0);
}

function listenerAdded(name) {
  // Told before the listener is there.
  if (DELIVERED.includes(name)) hold(true);
  if (name === 'clientState') follow(true);
}

function listenerRemoved(name) {
  if (DELIVERED.includes(name)) refresh();
}

function watchListeners() {
  if (!sdk.listeners('newListener').includes(listenerAdded)) sdk.on('newListener', listenerAdded);
  if (!sdk.listeners('removeListener').includes(listenerRemoved)) sdk.on('removeListener', listenerRemoved);
}

// Called by the native half with each record the SDK delivered, in order.
function deliver(kind, record) {
  if (kind === 'presence') {
    const request = pending.shift();
    if (request) {
      clearTimeout(request.timer);
      request.resolve(record);
      if (pending.length === 0) refresh();
    }
  }
  sdk.emit(kind, record);
}

watchListeners();
native.start(deliver);
// Nothing is delivered once the process is exiting.
process.once('exit', () => native.stop());

// ---- Devices and commands ----

function registerAudioDevice(device) {
  const { name, index, usbVid, usbPid } = checks.device(device, 'device');
  return native.registerAudioDevice(name, index, usbVid, usbPid);
}

function cleanupAudioDevices() {
  return native.cleanupAudioDevices();
}

function isRegisteredDevice(device) {
  const { name, index } = checks.device(device, 'device', { usbIdsOptional: true });
  return native.isRegisteredDevice(name, index);
}

function sendAudioCommand(command, device) {
  const code = checks.audioCommand(command, 'command');
  const { name, index, usbVid, usbPid } = checks.device(device, 'device', { usbIdsOptional: true });
  return native.sendAudioCommand(code, name, index, usbVid, usbPid);
}

function refusal(status) {
  const reason = REFUSALS[status] ?? 'the SDK refused it';
  const error = new Error(`yumoclientsdk: the presence request was not sent: ${reason} (status ${status})`);
  error.code = status;
  return error;
}

function getPresenceStatus(options) {
  return new Promise((resolve, reject) => {
    const given = checks.options(options, 'options', '{ timeout }');
    const milliseconds = given.timeout === undefined ? PRESENCE_TIMEOUT : checks.timeout(given.timeout, 'options.timeout');
    const status = native.getPresenceStatus();
    if (status !== CommandStatus.SENT) throw refusal(status);
    const request = { resolve, reject };
    request.timer = setTimeout(() => {
      pending.splice(pending.indexOf(request), 1);
      refresh();
      const error = new Error(`yumoclientsdk: no presence answer within ${milliseconds} ms`);
      error.code = 'ETIMEDOUT';
      reject(error);
    }, milliseconds);
    pending.push(request);
    hold(true);
  });
}

// ---- The log ----

function configureLog(options) {
  const given = checks.options(options, 'options', '{ takesStandardError, sizeLimit }');
  let applied = true;
  if (given.takesStandardError !== undefined) {
    if (typeof given.takesStandardError !== 'boolean') {
      throw checks.typeError('options.takesStandardError', 'of type boolean', given.takesStandardError);
    }
    applied = native.setTakesStandardError(given.takesStandardError) && applied;
  }
  if (given.sizeLimit !== undefined) {
    const bytes = checks.integer(given.sizeLimit, 'options.sizeLimit', 0, Number.MAX_SAFE_INTEGER);
    if (bytes !== 0 && bytes < 65536) throw checks.rangeError('options.sizeLimit', '0 or >= 65536', bytes);
    applied = native.setLogSizeLimit(bytes) && applied;
  }
  return applied;
}

// ---- Features ----

function registerFeature(mask) {
  return native.registerFeature(checks.integer(mask, 'mask', 0, Number.MAX_SAFE_INTEGER));
}

// ---- The meeting client, Outlook and the system ----

function setErrorCode(code) {
  native.setErrorCode(checks.integer(code, 'code', -0x80000000, 0x7fffffff));
}

function codeSignCheck(check, path, name) {
  try {
    return check(checks.text(path, name));
  } catch (error) {
    return Promise.reject(error);
  }
}

function checkAppCodeSign(bundlePath) {
  return codeSignCheck(native.checkAppCodeSign, bundlePath, 'bundlePath');
}

function checkPackageCodeSign(packagePath) {
  return codeSignCheck(native.checkPackageCodeSign, packagePath, 'packagePath');
}

module.exports = sdk;
module.exports.CommandStatus = CommandStatus;
module.exports.AudioCommand = AudioCommand;
module.exports.registerAudioDevice = registerAudioDevice;
module.exports.cleanupAudioDevices = cleanupAudioDevices;
module.exports.isRegisteredDevice = isRegisteredDevice;
module.exports.sendAudioCommand = sendAudioCommand;
module.exports.getPresenceStatus = getPresenceStatus;
module.exports.configureLog = configureLog;
module.exports.availableFeatures = native.availableFeatures;
module.exports.registerFeature = registerFeature;
module.exports.features = native.features;
module.exports.clientState = native.clientState;
module.exports.checkClientError = native.checkClientError;
module.exports.clientStatus = native.clientStatus;
module.exports.errorCode = native.errorCode;
module.exports.setErrorCode = setErrorCode;
module.exports.errorText = native.errorText;
module.exports.isClientInstalled = native.isClientInstalled;
module.exports.isClientRunning = native.isClientRunning;
module.exports.clientInstallPath = native.clientInstallPath;
module.exports.clientVersion = native.clientVersion;
module.exports.isSupportedClientVersion = native.isSupportedClientVersion;
module.exports.supportsSocketTransport = native.supportsSocketTransport;
module.exports.launchClient = native.launchClient;
module.exports.activateClientSilently = native.activateClientSilently;
module.exports.isOutlookInstalled = native.isOutlookInstalled;
module.exports.isOutlookRunning = native.isOutlookRunning;
module.exports.outlookVersion = native.outlookVersion;
module.exports.isSupportedOutlookVersion = native.isSupportedOutlookVersion;
module.exports.isSupportedOSVersion = native.isSupportedOSVersion;
module.exports.systemLanguage = native.systemLanguage;
module.exports.checkAppCodeSign = checkAppCodeSign;
module.exports.checkPackageCodeSign = checkPackageCodeSign;
