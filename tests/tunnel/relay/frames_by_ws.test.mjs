// Checks our relay client's frames with the `ws` library. As a server, `ws` enforces what RFC 6455
// requires of a client: mask, reserved bits, opcodes, lengths, control frames. It reports each
// violation as an error, and these tests allow none.
//
// RELAY_CLIENT names the relay_client program.

import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { once } from "node:events";
import { createRequire } from "node:module";
import { test } from "node:test";

const require = createRequire(new URL("../../../lab/package.json", import.meta.url));
const { WebSocketServer } = require("ws");

const SIZES = [0, 1, 20, 125, 126, 127, 1330, 1331, 65535, 65536, 65537, 1000000, 4194304];

// Runs `body` with a strict server on a loopback port. Returns the upgrade requests received.
async function withServer(onConnection, body) {
  const server = new WebSocketServer({
    host: "127.0.0.1", port: 0, perMessageDeflate: false, skipUTF8Validation: false,
    maxPayload: 4194304,
  });
  const errors = [];
  const requests = [];
  server.on("wsClientError", (error) => errors.push(error));
  server.on("connection", (socket, request) => {
    requests.push(request);
    socket.on("error", (error) => errors.push(error));
    onConnection(socket);
  });
  await once(server, "listening");
  try {
    await body(`ws://127.0.0.1:${server.address().port}`);
  } finally {
    for (const socket of server.clients) socket.terminate();
    await new Promise((resolve) => server.close(resolve));
  }
  assert.deepEqual(errors, []);
  return requests;
}

async function runClient(url, sizes) {
  assert.ok(process.env.RELAY_CLIENT, "RELAY_CLIENT names the relay_client program");
  const client = spawn(process.env.RELAY_CLIENT, [url, ...sizes.map(String)],
    { stdio: ["ignore", "ignore", "pipe"] });
  let said = "";
  client.stderr.on("data", (data) => { said += data; });
  const [code] = await once(client, "close");
  assert.equal(code, 0, said);
}

function patternOf(size) {
  const bytes = Buffer.alloc(size);
  for (let i = 0; i < size; i++) bytes[i] = i % 251;
  return bytes;
}

test("frames of every length form are accepted and echoed unchanged", async () => {
  const received = [];
  let closed = null;
  const requests = await withServer((socket) => {
    socket.on("message", (data, isBinary) => {
      received.push([data, isBinary]);
      socket.send(data, { binary: true });
    });
    closed = once(socket, "close");
  }, async (url) => {
    await runClient(`${url}/api/relay/client/c1?engineerId=ENG-1`, SIZES);
    const [code] = await closed;
    assert.equal(code, 1005, "an empty close frame, not a broken connection");
  });
  assert.equal(requests[0].url, "/api/relay/client/c1?engineerId=ENG-1");
  assert.equal(received.length, SIZES.length);
  SIZES.forEach((size, i) => {
    const [data, isBinary] = received[i];
    assert.equal(isBinary, true);
    assert.ok(data.equals(patternOf(size)), `frame of ${size} bytes`);
  });
});

test("a ping inside a fragmented message is answered with its payload", async () => {
  let pong = null;
  await withServer((socket) => {
    pong = once(socket, "pong");
    socket.on("message", (data) => {
      socket.send("not for us"); // text frames are skipped
      socket.send(data.subarray(0, 5), { binary: true, fin: false });
      socket.ping("between");
      socket.send(data.subarray(5), { binary: true, fin: true });
    });
  }, async (url) => {
    await runClient(`${url}/`, [1000]);
    const [payload] = await pong;
    assert.equal(payload.toString(), "between");
  });
});
