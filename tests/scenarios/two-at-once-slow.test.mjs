// Like two-at-once.test.mjs, with a slow service, so that most acts happen during a request.
import { twoAtOnce } from './two_at_once.mjs';

const kGrantMs = 100;
const kEndMs = 50;

twoAtOnce('acts at random moments of 100 connections through a slow service keep their effect', {
  connections: 100, stops: 0.1,
  async prepare(lab) {
    await lab.service.setReply({ path: '/api/connections/', delayMs: kEndMs });
    await lab.service.setReply({ path: '/api/connections/request', delayMs: kGrantMs });
  },
});
