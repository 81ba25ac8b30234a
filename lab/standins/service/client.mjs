// The parent's side of main.mjs: the methods of LabService, each as a promise.
import { caller } from '../../harness/remote_call.mjs';
import { kMethods } from './service.mjs';

/** Takes a process that was forked from main.mjs. */
export async function connectService(child) {
  const call = caller(child, 'service');
  return Object.fromEntries(kMethods.map((method) => [method, (...args) => call(method, ...args)]));
}
