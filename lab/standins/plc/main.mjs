// The controller on site: Modbus TCP, a web server, and an echo service on port 7.
// Usage: node main.mjs FILE MODBUS_PORT WEB_PORT   (FILE is served as /file)
import { createReadStream, statSync } from 'node:fs';
import http from 'node:http';
import { createRequire } from 'node:module';

import { startEcho } from './echo.mjs';

const { ServerTCP } = createRequire(new URL('../../package.json', import.meta.url))('modbus-serial');

const [file, modbusPort, webPort] = process.argv.slice(2);
const registers = new Map();

const modbus = new ServerTCP({
  getHoldingRegister: (address) => registers.get(address) ?? 0,
  setRegister: (address, value) => { registers.set(address, value); },
}, { host: '0.0.0.0', port: Number(modbusPort), unitID: 1 });

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
  web.listen(Number(webPort), '0.0.0.0', () => console.log('ready'));
});
modbus.on('serverError', (error) => { console.error(error.message); process.exit(1); });
