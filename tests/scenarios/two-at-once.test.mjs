import { twoAtOnce } from './two_at_once.mjs';

twoAtOnce('acts at random moments of 100 connections, each over the one before, stay done',
  { connections: 100, stops: 0.05 });
