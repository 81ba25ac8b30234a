// A service with an untrusted certificate gets no request, and so no access key.
import assert from 'node:assert/strict';
import path from 'node:path';

import { kCloud } from '../../lab/harness/network.mjs';
import { kRepo } from '../../lab/harness/paths.mjs';
import { runOrFail } from '../../lab/harness/processes.mjs';
import { clickConnect, scenario } from './scenario.mjs';

const kPort = 31443;

scenario('a self-signed certificate is refused before anything is sent',
  { start: false, settings: { serverUrl: `https://${kCloud}:${kPort}` } }, async (lab) => {
    const [key, cert] = ['key.pem', 'cert.pem'].map((name) => path.join(lab.workFolder, name));
    await runOrFail(['openssl', 'req', '-x509', '-newkey', 'rsa:2048', '-nodes', '-days', '2', '-keyout', key,
      '-out', cert, '-subj', `/CN=${kCloud}`, '-addext', `subjectAltName=IP:${kCloud}`]);
    const service = await lab.processes.start('https service',
      ['node', path.join(kRepo, 'lab/standins/service/https_main.mjs'), kCloud, String(kPort), key, cert],
      { namespace: lab.network.cloud, ready: /ready/ });
    const program = await lab.startProgram();
    await program.waitForLog(/自动更新检查异常：WinHttpReceiveResponse/);
    await clickConnect(program);
    await program.waitForLog(/Error: WinHttpReceiveResponse/);
    // Wine has no text for the reason; with one, the hint would name only the certificate.
    await program.waitForLog(/提示：.*服务地址是 https 时，也核对电脑的日期和时间。/);
    const seen = lab.processes.outputOf(service);
    assert.match(seen, /connection/, 'the service was asked');
    assert.doesNotMatch(seen, /request/);
  });
