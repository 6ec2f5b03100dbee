// Layers from left to right, as the data flows. dagre places what it can place at once; its cost grows with the layers
// that edges cross, so that what is wide and deep is placed by a plainer walk: the same layers, ordered by the places
// of the neighbours.

import { Graph as Dagre, layout as dagreLayout } from '@dagrejs/dagre';

const GAP = 26; // between nodes of a layer
const LAYER_GAP = 84;
const GRID_GAP = 18;
const DAGRE_MOST = 260; // nodes, and layers that edges cross

// nodes: [{ id, width, height }], edges: [{ id, from, to }] by index of nodes.
// Result: positions [{ x, y }] and, by edge, the points it passes between its ends.
export function layered(nodes, edges) {
  const straight = edges.filter((edge) => edge.from !== edge.to);
  const joined = new Uint8Array(nodes.length);
  for (const { from, to } of straight) joined[from] = joined[to] = 1;
  const ranks = ranksOf(nodes.length, straight);
  let work = nodes.length + straight.length;
  for (const { from, to } of straight) work += Math.max(0, Math.abs(ranks[to] - ranks[from]) - 1);
  const placed = work <= DAGRE_MOST ? byDagre(nodes, straight, joined) : byRank(nodes, straight, joined, ranks);
  placeLoners(nodes, joined, placed.positions);
  return placed;
}

function byDagre(nodes, edges, joined) {
  const graph = new Dagre({ multigraph: true });
  graph.setGraph({ rankdir: 'LR', nodesep: GAP, edgesep: 14, ranksep: LAYER_GAP });
  nodes.forEach(({ width, height }, i) => joined[i] && graph.setNode(String(i), { width, height }));
  for (const edge of edges) graph.setEdge(String(edge.from), String(edge.to), {}, edge.id);
  dagreLayout(graph);
  const positions = nodes.map((_, i) => {
    if (!joined[i]) return null;
    const { x, y } = graph.node(String(i));
    return { x, y };
  });
  const points = new Map();
  for (const edge of edges) {
    points.set(edge.id, graph.edge(String(edge.from), String(edge.to), edge.id).points.slice(1, -1));
  }
  return { positions, points };
}

// The longest way to each node over the edges that close no cycle; then sources move next to what they feed.
function ranksOf(count, edges) {
  const next = Array.from({ length: count }, () => []);
  for (const { from, to } of edges) next[from].push(to);
  const order = postorder(count, next);
  const place = new Int32Array(count);
  order.forEach((node, i) => { place[node] = i; });
  const forward = (from, to) => place[to] < place[from];
  const ranks = new Int32Array(count);
  const incoming = new Uint8Array(count);
  for (let i = count - 1; i >= 0; --i) {
    for (const to of next[order[i]]) {
      if (!forward(order[i], to)) continue;
      incoming[to] = 1;
      ranks[to] = Math.max(ranks[to], ranks[order[i]] + 1);
    }
  }
  for (const node of order) {
    const after = next[node].filter((to) => forward(node, to)).map((to) => ranks[to]);
    if (!incoming[node] && after.length) ranks[node] = Math.min(...after) - 1;
  }
  return ranks;
}

function postorder(count, next) {
  const order = [];
  const state = new Uint8Array(count);
  const at = new Int32Array(count);
  for (let root = 0; root < count; ++root) {
    if (state[root]) continue;
    const path = [root];
    state[root] = 1;
    while (path.length) {
      const node = path.at(-1);
      const to = next[node][at[node]++];
      if (to === undefined) order.push(path.pop());
      else if (!state[to]) {
        state[to] = 1;
        path.push(to);
      }
    }
  }
  return order;
}

function byRank(nodes, edges, joined, ranks) {
  const layers = [];
  nodes.forEach((_, i) => { if (joined[i]) (layers[ranks[i]] ??= []).push(i); });
  const near = nodes.map(() => []);
  for (const { from, to } of edges) {
    near[from].push(to);
    near[to].push(from);
  }
  const y = new Float64Array(nodes.length);
  const stack = (layer) => {
    let height = -GAP;
    for (const node of layer) height += nodes[node].height + GAP;
    let top = -height / 2;
    for (const node of layer) {
      y[node] = top + nodes[node].height / 2;
      top += nodes[node].height + GAP;
    }
  };
  const used = layers.filter(Boolean);
  used.forEach(stack);
  for (let sweep = 0; sweep < 6; ++sweep) {
    for (const layer of sweep % 2 ? [...used].reverse() : used) {
      const mean = new Map(layer.map((node) => [node, near[node].reduce((sum, other) => sum + y[other], 0) / near[node].length]));
      layer.sort((a, b) => mean.get(a) - mean.get(b) || a - b);
      stack(layer);
    }
  }
  const widest = Math.max(...nodes.map((node) => node.width));
  const column = new Map(used.map((layer, i) => [ranks[layer[0]], i]));
  const spread = LAYER_GAP + Math.min(220, Math.max(...used.map((layer) => layer.length)) * 3);
  const positions = nodes.map((_, i) => (joined[i] ? { x: column.get(ranks[i]) * (widest + spread), y: y[i] } : null));
  return { positions, points: new Map() };
}

// What has no edge stands in rows below the rest.
function placeLoners(nodes, joined, positions) {
  const loners = nodes.map((_, i) => i).filter((i) => !joined[i]);
  if (loners.length === 0) return;
  let left = Infinity;
  let right = -Infinity;
  let bottom = -Infinity;
  positions.forEach((position, i) => {
    if (!position) return;
    left = Math.min(left, position.x - nodes[i].width / 2);
    right = Math.max(right, position.x + nodes[i].width / 2);
    bottom = Math.max(bottom, position.y + nodes[i].height / 2);
  });
  const width = Math.max(...loners.map((i) => nodes[i].width)) + GRID_GAP;
  const height = Math.max(...loners.map((i) => nodes[i].height)) + GRID_GAP;
  const columns = Math.max(1, Math.ceil(Math.sqrt(loners.length / 2.5)), Number.isFinite(right) ? Math.floor((right - left) / width) : 1);
  const x = Number.isFinite(left) ? left : 0;
  const y = Number.isFinite(bottom) ? bottom + 60 : 0;
  loners.forEach((node, i) => {
    positions[node] = { x: x + (i % columns + 0.5) * width, y: y + (Math.floor(i / columns) + 0.5) * height };
  });
}
