// What is to be drawn: boxes with two lines of text, arrows between them, and small signs at the corners of a box for
// the neighbours that are not shown.

import { ACCESS, DOWN, TYPES, UP } from './graph.js';
import { count, plural, shorten, splitName } from './text.js';

const BOX = { least: 104, most: 214, height: 46, margin: 28 };
export const FONT = '"Segoe UI", "Noto Sans", "Liberation Sans", Arial, sans-serif';
export const FONT_SIZE = 12.5;
export const MOST_GROUP_EDGES = 60;

const ruler = document.createElement('canvas').getContext('2d');
const measured = new Map();

// A text as far as it has room in a box, and its width.
function fitted(text) {
  let short = measured.get(text);
  if (!short) {
    ruler.font = `600 ${FONT_SIZE}px ${FONT}`;
    const width = (part) => ruler.measureText(part).width;
    const cut = shorten(text, (part) => width(part) <= BOX.most - BOX.margin);
    measured.set(text, (short = { text: cut, width: width(cut) }));
  }
  return short;
}

function boxOf(...texts) {
  const lines = texts.filter(Boolean).map(fitted);
  const widest = Math.max(...lines.map((line) => line.width)) + BOX.margin;
  return { lines: lines.map((line) => line.text), width: Math.min(BOX.most, Math.max(BOX.least, Math.ceil(widest))), height: BOX.height };
}

export function groupTitle(group) {
  const path = group.path.join(group.kind === 'table' ? '.' : '/');
  if (path === '') return group.kind === 'job' ? 'Jobs outside folders' : 'Files outside folders';
  return group.exact ? `${path} (directly)` : path;
}

// A data source as one; a schema within it, or a folder, as what it holds.
export const groupType = (group) => (group.kind === 'table' && group.path.length === 1 && !group.exact ? 'datasource' : group.kind);

export const groupCount = (group) => plural(group.count, group.kind);

// Of more edges than can be told apart, those of the group that is picked.
export function sceneOfGroups({ groups, edges }, pick) {
  const pairs = new Set(edges.map((edge) => `${edge.from.index} ${edge.to.index}`));
  if (edges.length > MOST_GROUP_EDGES) edges = edges.filter((edge) => edge.from.key === pick || edge.to.key === pick);
  return {
    nodes: groups.map((group) => ({
      id: `g${group.key}`, key: group.key, type: groupType(group), group: true, name: groupTitle(group),
      ...boxOf(groupTitle(group), groupCount(group)),
    })),
    edges: edges.map((edge) => ({
      id: `g${edge.access} ${edge.from.index} ${edge.to.index}`, from: edge.from.index, to: edge.to.index, access: ACCESS[edge.access],
      inferred: false, label: count(edge.count),
      paired: pairs.has(`${edge.to.index} ${edge.from.index}`), weight: Math.min(5, 1.5 + Math.log2(edge.count) / 3),
    })),
    badges: [],
  };
}

export function sceneOfNodes(graph, shown, focus) {
  const nodes = [...shown].sort((a, b) => a - b);
  const index = new Map(nodes.map((node, i) => [node, i]));
  return {
    nodes: nodes.map((node) => {
      const type = TYPES[graph.types[node]];
      const [path, name] = splitName(type, graph.names[node]);
      return {
        id: `n${node}`, node, type, group: false, name: graph.names[node], ...boxOf(name, path),
      };
    }),
    edges: graph.edgesAmong(shown).map((edge) => ({
      id: `e${edge}`, from: index.get(graph.from[edge]), to: index.get(graph.to[edge]), access: ACCESS[graph.access[edge]],
      inferred: graph.inferred[edge] === 1, label: '', weight: 1.5,
    })),
    badges: nodes.flatMap((node) => [UP, DOWN].map((direction) => badgeOf(graph, shown, focus, node, direction)).filter(Boolean)),
  };
}

function badgeOf(graph, shown, focus, node, direction) {
  const near = graph.neighbours(node, direction);
  const hidden = near.filter((other) => !shown.has(other)).length;
  if (hidden === 0 && !(node === focus && near.length)) return null;
  return {
    id: `b${direction} ${node}`, node, at: `n${node}`, direction, fold: hidden === 0,
    label: hidden === 0 ? '\u2212' : `+${hidden > 999 ? '999' : hidden}`,
  };
}
