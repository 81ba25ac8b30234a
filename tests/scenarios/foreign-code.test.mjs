// Foreign code must not get into the program, which has administrator rights.
import assert from 'node:assert/strict';
import { cp, mkdir, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { kProgramFile } from '../../lab/harness/paths.mjs';
import { connect, scenario } from './scenario.mjs';

/**
 * Windows libraries of the program that are not among the system's known DLLs. Without bcrypt and crypt32, because
 * Wine's own libraries load them from the program's folder in any case.
 */
const kLibraries = ['dwmapi', 'iphlpapi', 'winhttp', 'wintrust', 'wtsapi32'];

scenario('libraries beside the program and variables that name another browser have no effect',
  { start: false }, async (lab) => {
    const folder = path.join(lab.workFolder, '下载');
    await mkdir(path.join(folder, 'browser'), { recursive: true });
    const file = path.join(folder, 'Velmarine.Client.exe');
    await cp(kProgramFile, file);
    for (const name of kLibraries) await writeFile(path.join(folder, `${name}.dll`), 'no library');

    const program = await lab.startProgram({
      file,
      env: {
        WEBVIEW2_BROWSER_EXECUTABLE_FOLDER: lab.prefix.windowsPath(path.join(folder, 'browser')),
        WEBVIEW2_ADDITIONAL_BROWSER_ARGUMENTS: '--remote-debugging-port=9222',
      },
    });
    await connect(program);
    assert.equal(await program.state(), '在线');
  });
