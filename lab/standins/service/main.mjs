// The service as a separate process, so that it can run inside a network namespace.
import { serve } from '../../harness/remote_call.mjs';
import { kMethods, LabService } from './service.mjs';

const service = new LabService();
serve((method, args) => {
  if (!kMethods.includes(method)) throw new Error(`The service has no method ${method}.`);
  return service[method](...args);
}, () => service.close());
