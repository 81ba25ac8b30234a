// The data blocks of the S7 controller, for both sides.

/** Written and read by clients; each client has `kValueBytes` of its own. */
export const kWrittenBlock = 1;
export const kValueBytes = 16;
export const kSlots = 512;

/** Read-only, contains pattern(). Takes several messages of 480 bytes, the usual size. */
export const kPatternBlock = 2;
export const kPatternBytes = 2000;

export const pattern = () =>
  Buffer.from(Array.from({ length: kPatternBytes }, (_, index) => (index * 7) % 251));
