// The overview: tables by data source, jobs and files by folder, each a group with a count. A group opens into the
// groups below it (schemas, folders).

import { DOWN, TYPE, TYPES, UP } from './graph.js';
import { partsOf, wellFormed } from './text.js';

const FOLDERS_SHOWN = 40;
const byName = new Intl.Collator('en', { numeric: true });
const NOT_GIVEN = '(no data source)';

const keyOf = (kind, path, exact) => `${kind}:${exact ? '=' : ''}${path.map((part) => encodeURIComponent(wellFormed(part))).join('/')}`;

function startsWith(path, prefix) {
  return path.length >= prefix.length && prefix.every((part, i) => part === path[i]);
}

export class Groups {
  constructor(graph) {
    this.graph = graph;
  }

  pathOf(node) {
    this.paths ??= new Array(this.graph.size);
    return (this.paths[node] ??= this.findPath(node));
  }

  findPath(node) {
    const { names, types, sources } = this.graph;
    const name = names[node];
    if (types[node] !== TYPE.TABLE) return partsOf(TYPES[types[node]], name).slice(0, -1);
    const source = sources[node];
    if (source < 0) return [NOT_GIVEN];
    const start = `${names[source]}.`;
    const rest = name.startsWith(start) ? name.slice(start.length) : name;
    return [names[source], ...partsOf('table', rest).slice(0, -1)];
  }

  parse(key) {
    const match = /^(job|table|file):(=?)(.*)$/s.exec(key);
    if (!match) return null;
    try {
      const path = match[3] === '' ? [] : match[3].split('/').map(decodeURIComponent);
      return { key, kind: match[1], exact: match[2] === '=', path };
    } catch {
      return null;
    }
  }

  keyOfSource(node) {
    return keyOf('table', [this.graph.names[node]], false);
  }

  members(group) {
    const found = [];
    const type = TYPES.indexOf(group.kind);
    for (let node = 0; node < this.graph.size; ++node) {
      if (this.graph.types[node] !== type) continue;
      const path = this.pathOf(node);
      if (startsWith(path, group.path) && (!group.exact || path.length === group.path.length)) found.push(node);
    }
    return found;
  }

  // How deep folders of a kind are told apart at first: as deep as there are few of them.
  depthOf(kind) {
    if (kind === 'table') return 1;
    this.depths ??= {};
    if (this.depths[kind]) return this.depths[kind];
    const type = TYPES.indexOf(kind);
    let depth = 1;
    for (let deeper = 2; deeper <= 8; ++deeper) {
      const found = new Set();
      for (let node = 0; node < this.graph.size && found.size <= FOLDERS_SHOWN; ++node) {
        if (this.graph.types[node] === type) found.add(this.pathOf(node).slice(0, deeper).join('/'));
      }
      if (found.size > FOLDERS_SHOWN) break;
      depth = deeper;
    }
    return (this.depths[kind] = depth);
  }

  // The depth at which a group falls into several, or null when it does not.
  depthWithin(group) {
    if (group.exact) return null;
    const members = this.members(group);
    const deepest = members.reduce((most, node) => Math.max(most, this.pathOf(node).length), 0);
    for (let depth = group.path.length + 1; depth <= deepest; ++depth) {
      const found = new Set(members.map((node) => this.pathOf(node).slice(0, depth).join('\0')));
      if (found.size > 1) return depth;
    }
    return null;
  }

  // All groups, with the group `within` (if any) replaced by those below it, and the edges between them.
  overview(within = null) {
    const { graph } = this;
    const inner = within ? this.depthWithin(within) : null;
    const groups = new Map();
    const groupOf = new Array(graph.size).fill(null);
    for (let node = 0; node < graph.size; ++node) groupOf[node] = this.groupAt(groups, node, within, inner);
    const ordered = [...groups.values()].sort((a, b) => a.kind.localeCompare(b.kind) || byName.compare(a.path.join('/'), b.path.join('/')));
    ordered.forEach((group, index) => { group.index = index; });
    return { groups: ordered, edges: this.edgesBetween(groupOf) };
  }

  // A data source without tables is a group, too.
  groupAt(groups, node, within, inner) {
    const kind = TYPES[this.graph.types[node]];
    if (kind === 'datasource') {
      const path = [this.graph.names[node]];
      return inner !== null && startsWith(within.path, path) && within.kind === 'table' ? null : this.take(groups, 'table', path, false);
    }
    const path = this.pathOf(node);
    const isInner = inner !== null && kind === within.kind && startsWith(path, within.path);
    const depth = isInner ? inner : this.depthOf(kind);
    const group = this.take(groups, kind, path.slice(0, depth), isInner && path.length < depth);
    ++group.count;
    return group;
  }

  take(groups, kind, path, exact) {
    const key = keyOf(kind, path, exact);
    let group = groups.get(key);
    if (!group) groups.set(key, (group = { key, kind, path, exact, count: 0, index: 0 }));
    return group;
  }

  edgesBetween(groupOf) {
    const { graph } = this;
    const edges = new Map();
    for (let edge = 0; edge < graph.edgeCount; ++edge) {
      const from = groupOf[graph.from[edge]];
      const to = groupOf[graph.to[edge]];
      if (from === to || !from || !to) continue;
      const key = (from.index * graph.size + to.index) * 3 + graph.access[edge];
      const found = edges.get(key);
      if (found) ++found.count;
      else edges.set(key, { from, to, access: graph.access[edge], count: 1 });
    }
    return [...edges.values()];
  }

  // Nodes with what they touch.
  around(members) {
    const shown = new Set(members);
    for (const node of members) {
      for (const edge of this.graph.edgesOf(node, DOWN)) shown.add(this.graph.to[edge]);
      for (const edge of this.graph.edgesOf(node, UP)) shown.add(this.graph.from[edge]);
    }
    return shown;
  }
}
