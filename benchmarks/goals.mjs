// The goals in goals.json. Pure.
//
// A goal is stored under the name of its figure, or under a pattern in which * matches anything; the exact name takes
// precedence, then the first matching pattern. A plain number is the maximum of the ratio to the anchor (of the figure itself
// if it has no anchor). The long forms are
//   {"atMost": 3}  {"atLeast": 0.9}  {"atMostAbove": 0.05}: above the anchor, in the figure's unit

const matches = (pattern, name) =>
  new RegExp(`^${pattern.split('*').map((part) => part.replace(/[.+?^${}()|[\]\\/]/g, '\\$&')).join('.*')}$`).test(name);

/** {kind, limit} of the figure `name`; null when it has no goal. */
export function findGoal(goals, name) {
  const key = Object.hasOwn(goals, name) ? name : Object.keys(goals).find((pattern) => pattern.includes('*') && matches(pattern, name));
  if (key === undefined) return null;
  const goal = goals[key];
  const [kind, limit] = typeof goal === 'number' ? ['atMost', goal] : Object.entries(goal)[0];
  if (!Object.hasOwn(kKinds, kind) || typeof limit !== 'number') throw new Error(`The goal of ${key} cannot be read.`);
  return { kind, limit };
}

const kKinds = {
  atMost: { isMet: (limit, value, anchor) => (anchor === null ? value : value / anchor) <= limit, text: 'at most' },
  atLeast: { isMet: (limit, value, anchor) => (anchor === null ? value : value / anchor) >= limit, text: 'at least' },
  atMostAbove: { isMet: (limit, value, anchor) => anchor !== null && value - anchor <= limit, text: 'anchor +' },
};

export const isMet = ({ kind, limit }, value, anchor) => kKinds[kind].isMet(limit, value, anchor);

export const describeGoal = ({ kind, limit }) => `${kKinds[kind].text} ${limit}`;
