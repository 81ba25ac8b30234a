// An S7 controller on one address. A separate process, because node-snap7 supports one server per process.
// Usage: forked with ADDRESS; sends {error}, null once it listens, and ends with its parent.
import { createRequire } from 'node:module';

import { kPatternBlock, kSlots, kValueBytes, kWrittenBlock, pattern } from './s7_blocks.mjs';

const { S7Server } = createRequire(new URL('../../package.json', import.meta.url))('node-snap7');

const server = new S7Server();
server.RegisterArea(server.srvAreaDB, kWrittenBlock, Buffer.alloc(kSlots * kValueBytes));
server.RegisterArea(server.srvAreaDB, kPatternBlock, pattern());
// The handler also keeps the server alive, which would stop when garbage-collected.
process.on('disconnect', () => {
  server.Stop();
  process.exit(0);
});
const listens = server.StartTo(process.argv[2]);
process.send({ error: listens ? null : server.ErrorText(server.LastError()).trim() });
