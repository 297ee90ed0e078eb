// Type declarations of yumoclientsdk: the YumoClientSdk for Node.js and Electron's main process.
//
//   import yumo from 'yumoclientsdk';                  // the module, an EventEmitter (its
//                                                      // listener methods are typed here)
//   import { registerAudioDevice } from 'yumoclientsdk';
//   yumo.on('audio', (event) => { ... });

declare namespace yumo {
  /** A USB audio device of this companion. */
  interface AudioDevice {
    /** The device's name: a non-empty string without NUL. */
    name: string;
    /** The device's index: a non-empty string, or a whole number written in decimal. */
    index: string | number;
    /** The USB vendor id, 0 to 65535. */
    usbVid: number;
    /** The USB product id, 0 to 65535. */
    usbPid: number;
  }

  /** A device as a command names it: its USB ids are 0 when left out. */
  interface CommandDevice {
    name: string;
    index: string | number;
    usbVid?: number;
    usbPid?: number;
  }

  /** The meeting client's answer to a presence request. */
  interface PresenceStatus {
    /** The user's presence status, as the meeting client numbers it (0 when the answer has none). */
    presenceStatus: number;
    /** The answer's result code, the part before ":". */
    code: number;
    /** The answer's result text, the part after ":"; null when there is none. */
    text: string | null;
    /** true when the result reads as failure ("0:..."). */
    error: boolean;
  }

  /** An audio event from the host process, for a device this process registered. */
  interface AudioEvent {
    /** The audio command, as the host process numbers it. */
    command: number;
    /** The device's name; null when the event names none. */
    name: string | null;
    /** The device's index ("0" when the event names none). */
    index: string | null;
  }

  type ClientChange = 'none' | 'started' | 'quit' | 'installed' | 'removed' | 'updated' | 'moved';
  type ClientTransport = 'none' | 'sockets' | 'notifications';

  /** The meeting client now, or after a change. */
  interface ClientState {
    /** true when the meeting client's bundle is where it was found. */
    installed: boolean;
    /** true while a process of this user runs it. */
    running: boolean;
    /** Its version ("CFBundleVersion"); "" when it cannot be read. */
    version: string;
    /** Where it was found, or last looked for. */
    path: string;
    /** What commands take now: none while the client does not run. */
    transport: ClientTransport;
    /** What changed: 'none' for clientState(), the change for a 'clientState' event. */
    change: ClientChange;
  }

  /** An Error with the SDK's status (a refused request) or 'ETIMEDOUT' (no answer in time). */
  interface YumoError extends Error {
    code: number | 'ETIMEDOUT';
  }

  /** The SDK's answers to a command. */
  const CommandStatus: {
    readonly SENT: 0;
    readonly CLIENT_NOT_INSTALLED: 2;
    readonly CLIENT_NOT_RUNNING: 5;
    readonly CLIENT_VERSION_NOT_SUPPORTED: 6;
    readonly NOT_SIGNED_IN: 7;
    readonly NO_TRANSPORT: 8;
  };

  /** Audio commands the SDK itself knows. */
  const AudioCommand: {
    /** The device is released (sent by cleanupAudioDevices() for each device removed). */
    readonly RELEASE: 101;
  };

  // ---- Events ----

  /** Listens for audio events of this process's devices; keeps the process alive while listening. */
  function on(event: 'audio', listener: (event: AudioEvent) => void): typeof yumo;
  /** Listens for every presence answer; keeps the process alive while listening. */
  function on(event: 'presence', listener: (status: PresenceStatus) => void): typeof yumo;
  /** Listens for the meeting client's changes (starts the SDK's watch of the client); keeps the
   * process alive while listening. */
  function on(event: 'clientState', listener: (state: ClientState) => void): typeof yumo;
  function once(event: 'audio', listener: (event: AudioEvent) => void): typeof yumo;
  function once(event: 'presence', listener: (status: PresenceStatus) => void): typeof yumo;
  function once(event: 'clientState', listener: (state: ClientState) => void): typeof yumo;
  function addListener(event: 'audio', listener: (event: AudioEvent) => void): typeof yumo;
  function addListener(event: 'presence', listener: (status: PresenceStatus) => void): typeof yumo;
  function addListener(event: 'clientState', listener: (state: ClientState) => void): typeof yumo;
  function off(event: 'audio' | 'presence' | 'clientState', listener: (...args: any[]) => void): typeof yumo;
  function removeListener(event: 'audio' | 'presence' | 'clientState', listener: (...args: any[]) => void): typeof yumo;
  /** Removes the listeners of one event, or of all: the process may then exit by itself. */
  function removeAllListeners(event?: 'audio' | 'presence' | 'clientState'): typeof yumo;
  function listenerCount(event: 'audio' | 'presence' | 'clientState'): number;

  // ---- Devices and commands ----

  /** Registers a device of this companion; false when the SDK refuses it. Throws TypeError or
   * RangeError for a bad argument. */
  function registerAudioDevice(device: AudioDevice): boolean;
  /** Removes this process's devices from the shared list, sends the release command for each and
   * answers how many were removed. Call it before the companion quits. */
  function cleanupAudioDevices(): number;
  /** true when this process registered the device (same name and index) in this run. */
  function isRegisteredDevice(device: CommandDevice): boolean;
  /** Sends an audio command for the device to the host process; answers a CommandStatus value. */
  function sendAudioCommand(command: number, device: CommandDevice): number;
  /** Asks the user's presence status: the meeting client's answer, or a rejection with a YumoError
   * (the request refused: the status as `code`; no answer within `timeout` ms, 5000 unless given:
   * 'ETIMEDOUT'). */
  function getPresenceStatus(options?: { timeout?: number }): Promise<PresenceStatus>;

  /** Chooses where the SDK's log goes, before the first call that needs the SDK's facade:
   * whether it takes standard error too (false unless YUMOCLIENTSDK_STDERR says otherwise), and
   * the size at which it starts afresh (0 for never, else at least 65536). false when too late. */
  function configureLog(options: { takesStandardError?: boolean; sizeLimit?: number }): boolean;

  /** The features this SDK offers: 3. */
  function availableFeatures(): number;
  /** Stores the mask when it shares a bit with the available features. */
  function registerFeature(mask: number): boolean;
  /** The feature mask last accepted; 0 at first. */
  function features(): number;

  // ---- The meeting client, Outlook and the system ----

  /** The meeting client now (change 'none'). */
  function clientState(): ClientState;
  /** Whether the meeting client can take a command: 0, or 5 when it does not run. */
  function checkClientError(): number;
  /** 1 when the meeting client does not run (or is not installed, or too old), 2 when it runs. */
  function clientStatus(): number;
  /** The stored error code: that of the last check, or of the last setErrorCode(). */
  function errorCode(): number;
  /** Stores an error code. */
  function setErrorCode(code: number): void;
  /** The text of the stored error code ("0:Error YumoClientNotRunning"); "" for one without. */
  function errorText(): string;
  function isClientInstalled(): boolean;
  function isClientRunning(): boolean;
  /** Where the meeting client was found, or last looked for. */
  function clientInstallPath(): string | null;
  /** The installed meeting client's version; "" when it cannot be read. */
  function clientVersion(): string | null;
  /** true for meeting client 4.2 and later. */
  function isSupportedClientVersion(): boolean;
  /** true for meeting client 5.6 and later (reached by socket; older ones by notification). */
  function supportsSocketTransport(): boolean;
  /** Starts the meeting client: true only when a new instance was started. */
  function launchClient(): boolean;
  /** Asks a running meeting client to activate silently; never starts one. */
  function activateClientSilently(): void;
  function isOutlookInstalled(): boolean;
  function isOutlookRunning(): boolean;
  /** Outlook's version; null when it cannot be read. */
  function outlookVersion(): string | null;
  function isSupportedOutlookVersion(): boolean;
  /** Never true on this platform (it has no Gestalt). */
  function isSupportedOSVersion(): boolean;
  /** The user's first preferred language ("en-US"); null when nothing says. */
  function systemLanguage(): string | null;
  /** Whether the system's signing tool accepts the bundle as signed by the maker (off Node's thread). */
  function checkAppCodeSign(bundlePath: string): Promise<boolean>;
  /** Whether the installer package's signature chain names the maker (off Node's thread). */
  function checkPackageCodeSign(packagePath: string): Promise<boolean>;
}

export = yumo;
