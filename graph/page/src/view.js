// The drawing: Cytoscape is given what is shown and no more.

import cytoscape from 'cytoscape';
import { layered } from './layout.js';
import { FONT, FONT_SIZE } from './scene.js';
import { UP } from './graph.js';
import { palette, styleOf } from './style.js';

const READABLE = 0.62; // the least zoom at which labels can be read
const LEAST = 0.5; // of a drawing without a middle
const LARGEST = 1.15;
const MARGIN = 40;

export class View {
  constructor(container, on) {
    this.container = container;
    this.cy = cytoscape({
      container, style: styleOf(palette(), FONT, FONT_SIZE), minZoom: 0.03, maxZoom: 3, boxSelectionEnabled: false,
      autoungrabify: true, autounselectify: true, layout: { name: 'null' },
    });
    this.cy.on('tap', 'node.box', (event) => on.pick(event.target.data('ref')));
    this.cy.on('dbltap', 'node.box', (event) => on.open(event.target.data('ref')));
    this.cy.on('tap', 'node.badge', (event) => on.badge(event.target.data('ref')));
    this.cy.on('mouseover', 'node', (event) => {
      container.style.cursor = 'pointer';
      on.hover(event.target.data('ref'));
    });
    this.cy.on('mouseout', 'node', () => {
      container.style.cursor = '';
      on.hover(null);
    });
  }

  // Draws a scene in place of what is there; the box `anchor`, if any, is what the eye is on.
  draw(scene, anchor) {
    const { positions, points } = layered(scene.nodes, scene.edges);
    const at = new Map(scene.nodes.map((box, i) => [box.id, i]));
    const { cy } = this;
    cy.batch(() => {
      cy.elements().remove();
      cy.add([
        ...scene.nodes.map((box, i) => boxElement(box, positions[i])),
        ...scene.edges.map((edge) => edgeElement(edge, scene.nodes, positions, points.get(edge.id) ?? [])),
        ...scene.badges.map((badge) => badgeElement(badge, scene.nodes[at.get(badge.at)], positions[at.get(badge.at)])),
      ]);
    });
    this.scene = scene;
    this.mark(anchor);
    this.frame(anchor);
  }

  // Another box in focus in the same drawing.
  point(scene, anchor) {
    const at = new Map(this.scene.nodes.map((box) => [box.id, box]));
    this.cy.batch(() => {
      this.cy.nodes('.badge').remove();
      this.cy.add(scene.badges.map((badge) => badgeElement(badge, at.get(badge.at), this.cy.getElementById(badge.at).position())));
    });
    this.mark(anchor);
  }

  // The whole where its labels can be read so, else the surroundings of the anchor, or where the drawing begins.
  frame(anchor) {
    const { cy } = this;
    if (cy.elements().empty()) return;
    const before = cy.zoom();
    this.fit();
    if (cy.zoom() >= (anchor ? READABLE : LEAST)) return;
    cy.zoom(Math.min(1, Math.max(READABLE, before)));
    if (anchor) {
      cy.center(cy.getElementById(anchor));
      return;
    }
    const { x1, y1, w, h } = cy.nodes().boundingBox();
    const zoom = cy.zoom();
    const start = (room, size) => Math.max(MARGIN, (room - size * zoom) / 2);
    const middle = cy.edges().nonempty() ? (cy.height() - h * zoom) / 2 : start(cy.height(), h);
    cy.pan({ x: start(cy.width(), w) - x1 * zoom, y: middle - y1 * zoom });
  }

  fit() {
    this.cy.fit(this.cy.nodes(), MARGIN);
    if (this.cy.zoom() > LARGEST) this.zoomTo(LARGEST);
  }

  zoomTo(level) {
    this.cy.zoom({ level, renderedPosition: { x: this.cy.width() / 2, y: this.cy.height() / 2 } });
  }

  zoomBy(factor) {
    this.zoomTo(this.cy.zoom() * factor);
  }

  mark(id) {
    this.cy.batch(() => {
      this.cy.elements('.focus, .near').removeClass('focus near');
      if (id === null) return;
      const box = this.cy.getElementById(id);
      box.addClass('focus');
      box.connectedEdges().addClass('near');
    });
  }

  centre(id) {
    const box = this.cy.getElementById(id);
    if (box.empty()) return;
    this.cy.stop();
    if (this.cy.zoom() < READABLE) this.zoomTo(READABLE);
    if (matchMedia('(prefers-reduced-motion: reduce)').matches) this.cy.center(box);
    else this.cy.animate({ center: { eles: box }, duration: 160 });
  }

  // The box next to another in the direction of an arrow key: along edges sideways, by place up and down.
  next(id, key) {
    const box = this.cy.getElementById(id);
    if (box.empty()) return this.cy.nodes('.box').first().data('ref') ?? null;
    const here = box.position();
    const boxes = key === 'ArrowLeft' ? box.incomers('node') : key === 'ArrowRight' ? box.outgoers('node') : this.cy.nodes('.box');
    const upright = key === 'ArrowUp' || key === 'ArrowDown';
    const sign = key === 'ArrowUp' ? -1 : 1;
    let best = null;
    let least = Infinity;
    boxes.forEach((other) => {
      const dx = other.position().x - here.x;
      const dy = other.position().y - here.y;
      if (other.id() === id || (upright && sign * dy <= 0)) return;
      const far = upright ? Math.abs(dx) * 8 + Math.abs(dy) : Math.abs(dy);
      if (far >= least) return;
      least = far;
      best = other;
    });
    return best?.data('ref') ?? null;
  }

  recolour(colours = palette()) {
    this.cy.style(styleOf(colours, FONT, FONT_SIZE));
  }

  png() {
    const { cy } = this;
    const badges = cy.nodes('.badge').remove();
    const picture = cy.png({ output: 'blob', full: true, scale: 2, bg: palette().ground, maxWidth: 10000, maxHeight: 10000 });
    badges.restore();
    return picture;
  }

  get shown() {
    return { boxes: this.cy.nodes('.box').length, edges: this.cy.edges().length };
  }
}

function boxElement(box, position) {
  return {
    group: 'nodes', position: { ...position }, classes: `box ${box.type}${box.group ? ' group' : ''}`,
    data: { id: box.id, label: box.lines.join('\n'), width: box.width, height: box.height, ref: box },
  };
}

function badgeElement(badge, box, position) {
  const side = badge.direction === UP ? -1 : 1;
  return {
    group: 'nodes', position: { x: position.x + side * (box.width / 2 - 10), y: position.y + box.height / 2 },
    classes: `badge${badge.fold ? ' fold' : ''}`,
    data: { id: badge.id, label: badge.label, width: 12 + badge.label.length * 7, ref: badge },
  };
}

// An edge leaves at the side where it goes and arrives at the other; one against the stream keeps below the others.
function edgeElement(edge, boxes, positions, points) {
  const from = positions[edge.from];
  const to = positions[edge.to];
  const data = {
    id: edge.id, source: boxes[edge.from].id, target: boxes[edge.to].id, label: edge.label, weight: edge.weight, lift: 0,
  };
  const classes = `${edge.access}${edge.inferred ? ' inferred' : ''}`;
  if (edge.from === edge.to) return { group: 'edges', data, classes: `${classes} loop` };
  const back = to.x < from.x;
  const side = back ? -1 : 1;
  if (edge.paired) data.lift = back ? 9 : -9;
  const start = { x: from.x + (side * boxes[edge.from].width) / 2, y: from.y + (back ? 10 : 0) };
  const end = { x: to.x - (side * boxes[edge.to].width) / 2, y: to.y + (back ? 10 : 0) };
  const reach = side * Math.min(70, Math.max(24, Math.abs(end.x - start.x) / 2));
  const first = { x: start.x + reach, y: start.y };
  const last = { x: end.x - reach, y: end.y };
  const bends = [first, ...points.filter(({ x }) => side * (x - first.x) > 1 && side * (last.x - x) > 1), last];
  const dx = to.x - from.x;
  const dy = to.y - from.y;
  const length = Math.hypot(dx, dy) || 1;
  data.weights = bends.map(({ x, y }) => ((x - from.x) * dx + (y - from.y) * dy) / (length * length));
  data.distances = bends.map(({ x, y }) => ((y - from.y) * dx - (x - from.x) * dy) / length);
  data.start = `${side * 50}% ${back ? 10 : 0}px`;
  data.end = `${side * -50}% ${back ? 10 : 0}px`;
  return { group: 'edges', data, classes };
}
