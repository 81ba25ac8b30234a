// Code that others would like the program to run, which has an administrator's rights.
import assert from 'node:assert/strict';
import { cp, mkdir, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { kProgramFile } from '../../lab/harness/paths.mjs';
import { connect, scenario } from './scenario.mjs';

/**
 * Windows' libraries that the program uses and that are not among those Windows keeps ready for all. Not bcrypt and
 * crypt32, which Wine's own libraries look for beside the program, whatever that has asked for.
 */
const kLibraries = ['dwmapi', 'iphlpapi', 'winhttp', 'wintrust', 'wtsapi32'];

scenario('libraries beside the program, and variables that name another browser, change nothing',
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
