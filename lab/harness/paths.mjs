// Paths of the build's results.
import path from 'node:path';
import { fileURLToPath } from 'node:url';

export const kRepo = fileURLToPath(new URL('../..', import.meta.url));
export const kBuild = path.join(kRepo, 'build');
/** Separates the namespaces, Windows and folders of labs that run at the same time; "" for the plain names. */
export const kLabSuffix = process.env.LAB_SUFFIX ?? '';
export const kProgramFile = path.join(kBuild, 'windows/Velmarine.Client.exe');
/** The same program with a higher version. */
export const kNextProgramFile = path.join(kBuild, 'windows/lab/update/Velmarine.Client.exe');
/** The program as built by a deployment that accepts updates from only one publisher. */
export const kPinnedProgramFile = path.join(kBuild, 'windows/lab/update/pinned/Velmarine.Client.exe');
/** Signed programs: signed_next.exe (by that publisher), stranger_next.exe, unknown_next.exe, signed_same.exe. */
export const signedProgram = (name) => path.join(kBuild, `windows/lab/update/${name}.exe`);
export const kBrowserRuntime = path.join(kBuild, 'windows/lab/browser/120.0.0.0');
export const kSettingWatch = path.join(kBuild, 'windows/lab/desk/setting_watch.exe');
export const kSendMessage = path.join(kBuild, 'windows/lab/desk/send_message.exe');
export const kClipboard = path.join(kBuild, 'windows/lab/desk/clipboard.exe');
export const kRustDesk = path.join(kBuild, 'windows/lab/rustdesk/rustdesk.exe');
export const kTunBridge = path.join(kBuild, 'native/lab/driver/tunbridge');
export const kWire = path.join(kBuild, 'native/lab/tun/wire');
