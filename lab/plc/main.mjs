// The controller on site: Modbus TCP on port 502, a web server on port 80, as real ones have, and an
// echo service on port 7.
// Usage: node main.mjs FILE   (the file that the web server hands out as /file)
import { createReadStream, statSync } from 'node:fs';
import http from 'node:http';
import { createRequire } from 'node:module';

import { startEcho } from './echo.mjs';

const { ServerTCP } = createRequire(new URL('../package.json', import.meta.url))('modbus-serial');

const file = process.argv[2];
const registers = new Map();

const modbus = new ServerTCP({
  getHoldingRegister: (address) => registers.get(address) ?? 0,
  setRegister: (address, value) => { registers.set(address, value); },
}, { host: '0.0.0.0', port: 502, unitID: 1 });

const web = http.createServer((request, response) => {
  if (request.url !== '/file') {
    response.writeHead(200, { 'content-type': 'text/plain' }).end('PLC\n');
    return;
  }
  response.writeHead(200, { 'content-length': statSync(file).size });
  createReadStream(file).pipe(response);
});

modbus.on('initialized', async () => {
  await startEcho();
  web.listen(80, '0.0.0.0', () => console.log('ready'));
});
modbus.on('serverError', (error) => { console.error(error.message); process.exit(1); });
