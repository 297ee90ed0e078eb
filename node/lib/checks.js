'use strict';
// Checks of the arguments, before anything reaches the SDK. Errors say which argument and what is
// accepted, in Node's own words and codes (ERR_INVALID_ARG_TYPE, ERR_INVALID_ARG_VALUE,
// ERR_OUT_OF_RANGE).

function received(value) {
  if (value === null) return 'Received null';
  if (value === undefined) return 'Received undefined';
  if (typeof value === 'function') return 'Received function ' + (value.name || '<anonymous>');
  if (typeof value === 'object') return 'Received an instance of ' + (value.constructor?.name ?? 'Object');
  let shown = typeof value === 'string' ? JSON.stringify(value) : String(value);
  if (shown.length > 40) shown = shown.slice(0, 37) + '...';
  return `Received type ${typeof value} (${shown})`;
}

function fail(ErrorType, code, message) {
  const error = new ErrorType(message);
  error.code = code;
  Error.captureStackTrace(error, fail);
  return error;
}

function typeError(name, expected, value) {
  return fail(TypeError, 'ERR_INVALID_ARG_TYPE', `The "${name}" argument must be ${expected}. ${received(value)}`);
}

function valueError(name, expected, value) {
  return fail(TypeError, 'ERR_INVALID_ARG_VALUE', `The "${name}" argument must be ${expected}. ${received(value)}`);
}

function rangeError(name, expected, value) {
  return fail(RangeError, 'ERR_OUT_OF_RANGE', `The value of "${name}" is out of range. It must be ${expected}. Received ${value}`);
}

// A text the SDK takes as a C string: a string, not empty, without NUL.
function text(value, name) {
  if (typeof value !== 'string') throw typeError(name, 'of type string', value);
  if (value.length === 0) throw valueError(name, 'a non-empty string', value);
  if (value.includes('\0')) throw valueError(name, 'a string without null bytes', value);
  return value;
}

function integer(value, name, least, most) {
  if (typeof value !== 'number') throw typeError(name, 'of type number', value);
  if (!Number.isInteger(value)) throw rangeError(name, 'an integer', value);
  if (value < least || value > most) throw rangeError(name, `>= ${least} and <= ${most}`, value);
  return value;
}

function object(value, name, shape) {
  if (value === null || typeof value !== 'object') throw typeError(name, `an object ${shape}`, value);
  return value;
}

const DEVICE = '{ name, index, usbVid, usbPid }';

// A device as the SDK's calls take it: its index as a text (a whole number is written in decimal),
// its USB identifiers 0 to 65535 (0 when left out, where `usbIdsOptional`).
function device(value, name, { usbIdsOptional = false } = {}) {
  object(value, name, DEVICE);
  const index = typeof value.index === 'number'
    ? String(integer(value.index, `${name}.index`, 0, Number.MAX_SAFE_INTEGER))
    : text(value.index, `${name}.index`);
  const usbId = (key) => (usbIdsOptional && value[key] === undefined ? 0 : integer(value[key], `${name}.${key}`, 0, 0xffff));
  return { name: text(value.name, `${name}.name`), index, usbVid: usbId('usbVid'), usbPid: usbId('usbPid') };
}

function audioCommand(value, name) {
  return integer(value, name, -0x80000000, 0x7fffffff);
}

// The milliseconds a request may wait, within what setTimeout takes.
function timeout(value, name) {
  return integer(value, name, 1, 0x7fffffff);
}

function options(value, name, shape) {
  if (value === undefined) return {};
  return object(value, name, shape);
}

module.exports = { text, integer, device, audioCommand, timeout, options, typeError, rangeError };
