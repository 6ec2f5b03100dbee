// The lineage graph in flat arrays: edges as compressed rows both ways, so that a walk costs what it visits, whatever
// the size of the whole.

export const TYPES = ['job', 'table', 'datasource', 'file'];
export const ACCESS = ['read', 'write', 'via'];
export const TYPE_NAMES = ['Job', 'Table', 'Data source', 'File'];

export const UP = 0;
export const DOWN = 1;

const JOB = TYPES.indexOf('job');
const TABLE = TYPES.indexOf('table');
const DATASOURCE = TYPES.indexOf('datasource');
export const TYPE = { JOB, TABLE, DATASOURCE, FILE: TYPES.indexOf('file') };

function rows(count, ends) {
  const start = new Int32Array(count + 1);
  for (const end of ends) ++start[end + 1];
  for (let i = 0; i < count; ++i) start[i + 1] += start[i];
  const edges = new Int32Array(ends.length);
  const next = start.slice();
  for (let edge = 0; edge < ends.length; ++edge) edges[next[ends[edge]]++] = edge;
  return { start, edges };
}

export class Graph {
  constructor(document) {
    if (document.format !== 'qvlineagegraph' || document.version !== 1) {
      throw new Error('This file holds no lineage graph that the page can read.');
    }
    const nodes = document.nodes ?? [];
    const edges = document.edges ?? [];
    this.title = document.title ?? '';
    this.view = document.view ?? 'all';
    this.size = nodes.length;
    this.edgeCount = edges.length;
    this.names = nodes.map((node) => node.name);
    this.identities = nodes.map((node) => node.identity ?? '');
    this.files = nodes.map((node) => node.file ?? '');
    this.types = Uint8Array.from(nodes, (node) => TYPES.indexOf(node.type));
    this.sources = Int32Array.from(nodes, (node) => node.source ?? -1);
    this.from = Int32Array.from(edges, (edge) => edge.from);
    this.to = Int32Array.from(edges, (edge) => edge.to);
    this.access = Uint8Array.from(edges, (edge) => ACCESS.indexOf(edge.access));
    this.inferred = Uint8Array.from(edges, (edge) => (edge.inferred ? 1 : 0));
    this.rows = [rows(this.size, this.to), rows(this.size, this.from)];
    this.others = [this.from, this.to];
    this.kinds = nodes.map((node) => node.kind ?? '');
    this.selection = this.find(document.selection ?? []);
    this.visited = new Int32Array(this.size); // the walk that met the node last
    this.walk = 0;
  }

  // The nodes that are named by type and identity, or by type and name where they have no identity.
  find(wanted) {
    if (wanted.length === 0) return [];
    const key = (type, text) => `${type} ${text}`;
    const known = new Map();
    for (let node = 0; node < this.size; ++node) known.set(key(TYPES[this.types[node]], this.identities[node] || this.names[node]), node);
    return wanted.map(([type, text]) => known.get(key(type, text))).filter((node) => node !== undefined);
  }

  // The edges that come into a node (UP) or leave it (DOWN).
  edgesOf(node, direction) {
    const { start, edges } = this.rows[direction];
    return edges.subarray(start[node], start[node + 1]);
  }

  other(edge, direction) {
    return this.others[direction][edge];
  }

  // The distinct nodes that one step leads to, in the order of their edges, without the node itself.
  neighbours(node, direction) {
    const found = new Set();
    for (const edge of this.edgesOf(node, direction)) found.add(this.other(edge, direction));
    found.delete(node);
    return [...found];
  }

  // The nodes at each distance: [[node], nodes one step away, two steps away, ...].
  levels(node, direction, most = Infinity) {
    const { start, edges } = this.rows[direction];
    const others = this.others[direction];
    const { visited } = this;
    const walk = ++this.walk;
    visited[node] = walk;
    const result = [[node]];
    for (let level = result[0]; result.length <= most;) {
      const next = [];
      for (const at of level) {
        for (let i = start[at]; i < start[at + 1]; ++i) {
          const other = others[edges[i]];
          if (visited[other] === walk) continue;
          visited[other] = walk;
          next.push(other);
        }
      }
      if (next.length === 0) break;
      result.push(next);
      level = next;
    }
    return result;
  }

  // The edges that have both ends in a set of nodes.
  edgesAmong(nodes) {
    const found = [];
    for (const node of nodes) {
      for (const edge of this.edgesOf(node, DOWN)) if (nodes.has(this.to[edge])) found.push(edge);
    }
    return found;
  }

  // Nodes and the edges among them, counted no further than is asked.
  elements(nodes, most) {
    let count = nodes.size;
    for (const node of nodes) {
      if (count > most) break;
      for (const edge of this.edgesOf(node, DOWN)) if (nodes.has(this.to[edge])) ++count;
    }
    return count;
  }

  countOf(type) {
    let count = 0;
    for (const each of this.types) if (each === type) ++count;
    return count;
  }

  // Changes with the nodes, their types and their order: says whether indices noted elsewhere still mean the same.
  get fingerprint() {
    if (this.print === undefined) {
      let hash = 0x811c9dc5 ^ this.edgeCount;
      const take = (value) => { hash = Math.imul(hash ^ value, 0x01000193); };
      for (let node = 0; node < this.size; ++node) {
        const name = this.names[node];
        take(this.types[node] + 1);
        for (let i = 0; i < name.length; ++i) take(name.charCodeAt(i));
      }
      this.print = (hash >>> 0).toString(36);
    }
    return this.print;
  }

  // Sets of nodes that reach each other, a node with an edge to itself among them; the largest first.
  get cycles() {
    this.foundCycles ??= findCycles(this);
    return this.foundCycles;
  }

  cycleOf(node) {
    if (!this.cycleIndex) {
      this.cycleIndex = new Map();
      this.cycles.forEach((members, index) => members.forEach((member) => this.cycleIndex.set(member, index)));
    }
    const index = this.cycleIndex.get(node);
    return index === undefined ? null : this.cycles[index];
  }
}

// Tarjan's strongly connected components with a stack of its own: depth is no limit.
function findCycles(graph) {
  const { size, to } = graph;
  const { start, edges } = graph.rows[DOWN];
  const order = new Int32Array(size);
  const low = new Int32Array(size);
  const next = new Int32Array(size);
  const onStack = new Uint8Array(size);
  const stack = [];
  const path = [];
  const found = [];
  let count = 0;
  const enter = (node) => {
    order[node] = low[node] = ++count;
    next[node] = start[node];
    onStack[node] = 1;
    stack.push(node);
    path.push(node);
  };
  const leave = (node) => {
    path.pop();
    if (path.length) low[path.at(-1)] = Math.min(low[path.at(-1)], low[node]);
    if (low[node] !== order[node]) return;
    const members = [];
    let member;
    do {
      member = stack.pop();
      onStack[member] = 0;
      members.push(member);
    } while (member !== node);
    if (members.length > 1 || graph.edgesOf(node, DOWN).some((edge) => to[edge] === node)) {
      found.push(members.sort((a, b) => a - b));
    }
  };
  for (let root = 0; root < size; ++root) {
    if (order[root]) continue;
    enter(root);
    while (path.length) {
      const node = path.at(-1);
      if (next[node] === start[node + 1]) {
        leave(node);
        continue;
      }
      const other = to[edges[next[node]++]];
      if (!order[other]) enter(other);
      else if (onStack[other]) low[node] = Math.min(low[node], order[other]);
    }
  }
  return found.sort((a, b) => b.length - a.length || a[0] - b[0]);
}
