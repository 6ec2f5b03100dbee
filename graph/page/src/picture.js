// The drawing as SVG, for a file and for paper. Presentation attributes only: a picture needs no style sheet.

import { ARROWS, SHAPES } from './style.js';
import { FONT, FONT_SIZE } from './scene.js';
import { oneLine, wellFormed } from './text.js';

const NS = 'http://www.w3.org/2000/svg';
const MARGIN = 24;

function make(name, attributes, ...children) {
  const element = document.createElementNS(NS, name);
  for (const [key, value] of Object.entries(attributes)) element.setAttribute(key, value);
  element.append(...children);
  return element;
}

const round = (number) => Math.round(number * 10) / 10;
const pair = ({ x, y }) => `${round(x)} ${round(y)}`;
const between = (a, b) => ({ x: (a.x + b.x) / 2, y: (a.y + b.y) / 2 });

export function svgOf(view, colours, title) {
  const bounds = view.cy.nodes('.box').union(view.cy.edges()).boundingBox({ includeLabels: false });
  const { x1 = 0, y1 = 0, w = 0, h = 0 } = view.cy.elements().empty() ? {} : bounds;
  const box = [x1 - MARGIN, y1 - MARGIN, w + 2 * MARGIN, h + 2 * MARGIN].map(round);
  const svg = make('svg', {
    xmlns: NS, viewBox: box.join(' '), width: box[2], height: box[3], 'font-family': FONT, 'font-size': FONT_SIZE,
  }, make('title', {}, wellFormed(oneLine(title))));
  svg.append(make('rect', { x: box[0], y: box[1], width: box[2], height: box[3], fill: colours.ground }));
  view.cy.edges().forEach((edge) => svg.append(...edgeShapes(edge, colours)));
  view.cy.nodes('.box').forEach((node) => svg.append(boxShape(node, colours)));
  return svg;
}

function edgeShapes(edge, colours) {
  const access = Object.keys(ARROWS).find((name) => edge.hasClass(name));
  const colour = colours[access];
  const bends = edge.controlPoints() ?? [];
  const start = edge.sourceEndpoint();
  const end = edge.targetEndpoint();
  let way = `M${pair(start)}`;
  bends.forEach((bend, i) => { way += `Q${pair(bend)} ${pair(i + 1 < bends.length ? between(bend, bends[i + 1]) : end)}`; });
  if (bends.length === 0) way += `L${pair(end)}`;
  const line = { d: way, fill: 'none', stroke: colour, 'stroke-width': round(edge.data('weight')) };
  if (edge.hasClass('inferred')) line['stroke-dasharray'] = '6 4';
  const shapes = [make('path', line), arrowHead(bends.at(-1) ?? start, end, access, colours)];
  if (edge.data('label')) {
    const middle = edge.midpoint();
    shapes.push(make('text', {
      x: round(middle.x), y: round(middle.y), fill: colours.ink, 'text-anchor': 'middle', 'dominant-baseline': 'central',
      stroke: colours.ground, 'stroke-width': 4, 'paint-order': 'stroke',
    }, edge.data('label')));
  }
  return shapes;
}

function arrowHead(from, tip, access, colours) {
  const length = Math.hypot(tip.x - from.x, tip.y - from.y) || 1;
  const dx = (tip.x - from.x) / length;
  const dy = (tip.y - from.y) / length;
  const corner = (side) => pair({ x: tip.x - 11 * dx - side * 5 * dy, y: tip.y - 11 * dy + side * 5 * dx });
  const [shape, fill] = ARROWS[access];
  const notch = shape === 'vee' ? ` ${pair({ x: tip.x - 7 * dx, y: tip.y - 7 * dy })}` : '';
  return make('polygon', {
    points: `${pair(tip)} ${corner(1)}${notch} ${corner(-1)}`, fill: fill === 'hollow' ? colours.ground : colours[access],
    stroke: colours[access], 'stroke-width': 1.5,
  });
}

function boxShape(node, colours) {
  const box = node.data('ref');
  const { x, y } = node.position();
  const half = { x: box.width / 2, y: box.height / 2 };
  const line = { fill: colours[box.type], stroke: colours[`${box.type}-line`], 'stroke-width': box.group ? 4 : 1.5 };
  const radius = SHAPES[box.type][1];
  const [left, right, top, bottom] = [x - half.x, x + half.x, y - half.y, y + half.y];
  const outline = box.type === 'file'
    ? make('path', { d: `M${left + radius} ${top}H${right - radius}L${right} ${top + radius}V${bottom - radius}L${right - radius} ${bottom}H${left + radius}L${left} ${bottom - radius}V${top + radius}Z`, ...line })
    : make('rect', { x: left, y: top, width: box.width, height: box.height, rx: radius, ...line });
  const height = FONT_SIZE * 1.25;
  const first = y - ((box.lines.length - 1) * height) / 2;
  const texts = box.lines.map((text, i) => make('text', {
    x: round(x), y: round(first + i * height), fill: colours.ink, 'text-anchor': 'middle', 'dominant-baseline': 'central',
    ...(i === 0 ? { 'font-weight': 600 } : {}),
  }, wellFormed(text)));
  return make('g', {}, make('title', {}, wellFormed(oneLine(box.name))), outline, ...texts);
}
