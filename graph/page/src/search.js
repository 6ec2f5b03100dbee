// Search as one types. A name is met from the end of its path: "customers" and "dw.customers" both name
// Warehouse.dw.customers exactly. What is exact goes before what starts so, and that before what merely holds it.

const SEPARATORS = './';

function isStart(name, at) {
  return at === 0 || SEPARATORS.includes(name[at - 1]);
}

// Lower is better; -1 is no match.
function rank(name, wanted) {
  const none = -1;
  let at = name.lastIndexOf(wanted);
  if (at < 0) return none;
  if (at + wanted.length === name.length && isStart(name, at)) return 0;
  for (; at >= 0; at = at === 0 ? none : name.lastIndexOf(wanted, at - 1)) if (isStart(name, at)) return 1;
  return 2;
}

export class Search {
  constructor(graph) {
    this.graph = graph;
  }

  // The best matches and how many there are in all.
  find(text, most) {
    const wanted = text.trim().toLowerCase();
    if (!wanted) return { nodes: [], count: 0 };
    this.lower ??= this.graph.names.map((name) => name.toLowerCase());
    const words = wanted.split(/\s+/);
    const byRank = [[], [], [], []];
    for (let node = 0; node < this.lower.length; ++node) {
      const name = this.lower[node];
      let found = rank(name, wanted);
      if (found < 0 && words.length > 1 && words.every((word) => name.includes(word))) found = 3;
      if (found >= 0) byRank[found].push(node);
    }
    const nodes = [];
    for (const same of byRank) {
      if (nodes.length < most) nodes.push(...this.shortestFirst(same, most - nodes.length));
    }
    return { nodes, count: byRank.reduce((sum, same) => sum + same.length, 0) };
  }

  // Of thousands that match a letter only the first few are put in order.
  shortestFirst(nodes, most) {
    const { names } = this.graph;
    const before = (a, b) => names[a].length - names[b].length || (names[a] < names[b] ? -1 : names[a] > names[b] ? 1 : a - b);
    if (nodes.length > 20 * most) {
      const lengths = nodes.map((node) => names[node].length).sort((a, b) => a - b);
      nodes = nodes.filter((node) => names[node].length <= lengths[most]);
    }
    return nodes.sort(before).slice(0, most);
  }
}
