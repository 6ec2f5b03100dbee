// What is shown, in the fragment of the address. Nodes are noted by index, which holds for one graph only: a link into
// a page that was made anew falls back to the name of the node in the middle.
//
//   #overview   #overview=table:Warehouse (that group opened)   either with &pick=job:batch_jobs
//   #at=table:Warehouse.dw.customers&show=<indices>&of=<fingerprint>

import { TYPES } from './graph.js';
import { wellFormed } from './text.js';

function pack(numbers) {
  let bytes = '';
  for (let number of numbers) {
    for (; number > 127; number = Math.floor(number / 128)) bytes += String.fromCharCode((number % 128) | 128);
    bytes += String.fromCharCode(number);
  }
  return btoa(bytes).replaceAll('+', '-').replaceAll('/', '_').replaceAll('=', '');
}

function unpack(text) {
  const bytes = atob(text.replaceAll('-', '+').replaceAll('_', '/'));
  const numbers = [];
  let number = 0;
  let unit = 1;
  for (let i = 0; i < bytes.length; ++i) {
    const byte = bytes.charCodeAt(i);
    number += (byte & 127) * unit;
    unit *= 128;
    if (byte < 128) {
      numbers.push(number);
      number = 0;
      unit = 1;
    }
  }
  return numbers;
}

// The node in the middle first (one more than its index, 0 for none), then the steps from one index to the next.
function packNodes(shown, focus) {
  let last = 0;
  const steps = [...shown].sort((a, b) => a - b).map((node) => {
    const step = node - last;
    last = node;
    return step;
  });
  return pack([(focus ?? -1) + 1, ...steps]);
}

function unpackNodes(text, size) {
  const [focus, ...steps] = unpack(text);
  let node = 0;
  const shown = new Set(steps.map((step) => (node += step)));
  if (!(focus <= size) || node >= size || shown.size === 0) return null;
  return { shown, focus: focus > 0 && shown.has(focus - 1) ? focus - 1 : null };
}

export function write(graph, state) {
  if (state.mode === 'groups') {
    const within = state.within ? `=${encode(state.within)}` : '';
    return `#overview${within}${state.pick ? `&pick=${encode(state.pick)}` : ''}`;
  }
  const at = state.focus === null ? '' : `at=${TYPES[graph.types[state.focus]]}:${encode(graph.names[state.focus])}&`;
  return `#${at}show=${packNodes(state.shown, state.focus)}&of=${graph.fingerprint}`;
}

const encode = (text) => encodeURIComponent(wellFormed(text));

// The state that a fragment tells, or null. `old` is true when the link was made for another graph.
export function read(graph, fragment) {
  const fields = new Map();
  for (const field of fragment.slice(1).split('&')) {
    const at = field.indexOf('=');
    if (at < 0) fields.set(field, '');
    else fields.set(field.slice(0, at), field.slice(at + 1));
  }
  const key = (name) => (fields.get(name) ? decodeURIComponent(fields.get(name)) : null);
  try {
    if (fields.has('overview')) return { mode: 'groups', within: key('overview'), pick: key('pick') };
    if (fields.has('show') && fields.get('of') === graph.fingerprint) {
      const nodes = unpackNodes(fields.get('show'), graph.size);
      if (nodes) return { mode: 'nodes', ...nodes };
    }
    if (fields.has('at')) return byName(graph, key('at'));
  } catch {
    // A fragment that somebody typed.
  }
  return null;
}

function byName(graph, at) {
  const colon = at.indexOf(':');
  const type = TYPES.indexOf(at.slice(0, colon));
  const name = at.slice(colon + 1);
  for (let node = 0; node < graph.size; ++node) {
    if (graph.types[node] === type && wellFormed(graph.names[node]) === name) {
      return { mode: 'nodes', shown: null, focus: node, old: true };
    }
  }
  return { mode: 'missing', name };
}
