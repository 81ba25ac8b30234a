// A service behind TLS that prints each request. Usage: node https_main.mjs ADDRESS PORT KEY CERT
import { readFileSync } from 'node:fs';
import { createServer } from 'node:https';

const [address, port, key, cert] = process.argv.slice(2);
const server = createServer({ key: readFileSync(key), cert: readFileSync(cert) }, (request, response) => {
  console.log(`request ${request.method} ${request.url}`);
  response.end('{"success":true,"data":{"updateAvailable":false}}');
});
server.on('secureConnection', () => console.log('handshake done'));
server.on('connection', () => console.log('connection'));
server.listen(Number(port), address, () => console.log('ready'));
