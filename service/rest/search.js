// ?name=value&_sort=name,-other&_limit&_skip: a search of users, groups or rooms
// Each condition wants an attribute (or "id", "ts", "name", "owner") to print as the given text.

import { count, limits } from '../values.js';

/** The records of `kind` that meet the conditions of `query`, sorted and paged. */
export function search(store, kind, query) {
  const { _sort: order = '', _limit, _skip, ...conditions } = query;
  const limit = Math.min(count(_limit, '_limit', limits.page), limits.longestPage);
  const skip = count(_skip, '_skip', 0);
  const wanted = Object.entries(conditions)
    .flatMap(([name, values]) => [values].flat().map((value) => [name, value]));
  const sort = order === '' ? undefined : byKeys([order].flat().join(',').split(','));
  return store.search(kind, wanted, { sort, skip, limit });
}

function field(record, name) {
  if (Object.hasOwn(record.attributes, name)) return record.attributes[name];
  return { id: record.id, ts: record.created, name: record.name, owner: record.owner }[name];
}

function byKeys(keys) {
  const orders = keys.map((key) => (key.startsWith('-') ? [key.slice(1), -1] : [key, 1]));
  return (a, b) => {
    for (const [name, direction] of orders) {
      const order = compare(field(a, name), field(b, name), direction);
      if (order !== 0) return order;
    }
    return 0;
  };
}

/**
 * Numbers come before texts, texts before anything else, which has no order. `direction` reverses
 * only the order within a kind.
 */
function compare(a, b, direction) {
  const kind = (value) => (typeof value === 'number' ? 0 : typeof value === 'string' ? 1 : 2);
  if (kind(a) !== kind(b) || kind(a) === 2) return kind(a) - kind(b);
  return a < b ? -direction : a > b ? direction : 0;
}
