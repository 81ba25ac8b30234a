import { twoAtOnce } from './two_at_once.mjs';

twoAtOnce('acts at random moments of 100 connections, each replacing the one before, keep their effect',
  { connections: 100, stops: 0.05 });
