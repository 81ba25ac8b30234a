// The program's texts by which the page recognises the state of a connection, read from the program's own list. This
// file serves scripts that run one by one, in tests; in the page, join.cmake puts the texts themselves in its place.
import { readFileSync } from 'node:fs';

const list = readFileSync(new URL('../../src/text/page_texts.cpp', import.meta.url), 'utf8');
const textOf = (name) => new RegExp(`${name}\\[\\] = L"(.*)";`).exec(list)[1];

export const kConnectBusy = textOf('kConnectBusy');
export const kRetryBusy = textOf('kRetryBusy');
export const kStopBusy = textOf('kStopBusy');
export const kLatencyBusy = textOf('kLatencyBusy');
export const kDesktopBusy = textOf('kDesktopBusy');
export const kResolveBusy = textOf('kResolveBusy');
export const kReconnecting = textOf('kReconnecting');
export const kRetryArmed = textOf('kRetryArmed');
export const kUnknownError = textOf('kUnknownError');
export const kRefusedPrefix = textOf('kRefusedPrefix');
export const kNotResolvedPrefix = textOf('kNotResolvedPrefix');
export const kGrantedPrefix = textOf('kGrantedPrefix');
