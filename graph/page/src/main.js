// The page: what is asked for (by mouse, key or address) becomes the next state, which is drawn, told beside and kept
// in the address.

import * as address from './address.js';
import { Details, element } from './details.js';
import { Finder } from './finder.js';
import { ACCESS, Graph, TYPE, TYPES, TYPE_NAMES } from './graph.js';
import { Groups } from './groups.js';
import { listenToKeys } from './keys.js';
import { svgOf } from './picture.js';
import { MOST_GROUP_EDGES, sceneOfGroups, sceneOfNodes } from './scene.js';
import { Search } from './search.js';
import { MOST_ELEMENTS, Selection } from './state.js';
import { palette } from './style.js';
import { count, plural } from './text.js';
import { View } from './view.js';

const byId = (id) => document.getElementById(id);
const SIDES = ['upstream', 'downstream'];

class Page {
  constructor(graph) {
    this.graph = graph;
    this.groups = new Groups(graph);
    this.selection = new Selection(graph);
    this.details = new Details(byId('details'), graph, this.groups, this.selection, this);
    this.view = new View(byId('graph'), {
      pick: (box) => this.pick(box), open: (box) => this.open(box), badge: (badge) => this.turn(badge), hover: (box) => this.hover(box),
    });
    this.finder = new Finder(byId('search'), byId('found'), byId('spoken'), new Search(graph), (node) => {
      this.goTo(node);
      byId('graph').focus();
    });
    this.state = null;
  }

  start() {
    document.title = this.graph.title || 'Lineage';
    byId('title').textContent = this.graph.title || 'Lineage';
    listenToKeys(this);
    for (const [id, action] of Object.entries(this.actions)) byId(id).addEventListener('click', action);
    addEventListener('hashchange', () => location.hash !== this.written && this.follow());
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => this.view.recolour());
    addEventListener('beforeprint', () => byId('print').replaceChildren(svgOf(this.view, palette(byId('print')), this.graph.title)));
    this.trimLegend();
    if (!this.follow()) this.openFirst();
    globalThis.requestIdleCallback?.(() => this.graph.fingerprint); // what the first link needs, before it is asked for
  }

  get actions() {
    return {
      skip: () => byId('graph').focus(), home: () => this.showOverview(), fit: () => this.view.fit(), png: () => this.save(this.view.png(), 'png'),
      svg: () => this.save(new Blob([new XMLSerializer().serializeToString(svgOf(this.view, palette(), this.graph.title))], { type: 'image/svg+xml' }), 'svg'),
      help: () => byId('help-text').showModal(), 'help-close': () => byId('help-text').close(),
    };
  }

  // The legend tells what occurs.
  trimLegend() {
    const { types, access, inferred } = this.graph;
    const occurs = new Set([...new Set(types)].map((type) => TYPES[type]));
    for (const each of new Set(access)) occurs.add(ACCESS[each]);
    if (inferred.includes(1)) occurs.add('inferred');
    for (const item of document.querySelectorAll('.legend li')) item.hidden = !occurs.has(item.dataset.of);
  }

  // What the page opens on when the address says nothing.
  openFirst() {
    if (this.graph.selection.length) this.showSelection(true);
    else this.show({ mode: 'groups', within: null, pick: null }, { replace: true });
  }

  // Shows what the address tells; false when it tells nothing.
  follow() {
    const state = location.hash.length > 1 ? address.read(this.graph, location.hash) : null;
    if (!state) {
      if (this.state) this.openFirst();
      return this.state !== null;
    }
    const options = { replace: true };
    if (state.mode === 'missing') {
      this.show({ mode: 'groups', within: null, pick: null }, options);
      this.note(`The link leads to ${state.name}, which is not in this graph.`);
    } else if (state.old) {
      this.goTo(state.focus, options);
      this.note('The link was made for another state of the graph: its middle is shown.');
    } else {
      this.show(state, options);
    }
    return true;
  }

  // Draws a state and keeps it in the address. A set of nodes that is too large is refused.
  show(state, { replace = false } = {}) {
    const { mode } = state;
    if (mode === 'nodes' && !this.selection.fits(state.shown)) {
      this.refuse(state.shown.size);
      if (!this.state) this.show({ mode: 'groups', within: null, pick: null }, { replace: true });
      return false;
    }
    this.note('');
    const before = this.state;
    this.state = state;
    if (mode === 'groups') this.drawGroups();
    else this.drawNodes(before);
    this.tell();
    this.keep(replace);
    return true;
  }

  drawGroups() {
    const { state } = this;
    const within = state.within ? this.groups.parse(state.within) : null;
    this.overview = this.groups.overview(within);
    const pick = this.overview.groups.find((group) => group.key === state.pick);
    if (!pick) state.pick = null;
    this.draw(sceneOfGroups(this.overview, state.pick), pick ? `g${pick.key}` : null);
  }

  drawNodes(before) {
    const { shown, focus } = this.state;
    const anchor = focus === null ? null : `n${focus}`;
    const scene = sceneOfNodes(this.graph, shown, focus);
    const same = before?.mode === 'nodes' && before.shown.size === shown.size && [...shown].every((node) => before.shown.has(node));
    if (same) this.view.point(scene, anchor);
    else this.draw(scene, anchor);
  }

  draw(scene, anchor) {
    this.view.draw(scene, anchor);
    const { boxes, edges } = this.view.shown;
    byId('shown').textContent = this.state.mode === 'groups' ? plural(boxes, 'group')
      : `${plural(boxes, 'node')} and ${plural(edges, 'edge')} of ${count(this.graph.size)} and ${count(this.graph.edgeCount)}`;
    byId('empty').hidden = boxes > 0;
  }

  tell() {
    const { state } = this;
    if (state.mode === 'groups') {
      const pick = state.pick ? this.groups.parse(state.pick) : null;
      if (pick) this.details.group(pick);
      else this.details.overview(this.overview);
    } else if (state.focus === null) {
      this.details.set(state.shown);
    } else {
      this.details.node(state.focus, state.shown);
      this.say(`${TYPE_NAMES[this.graph.types[state.focus]]} ${this.graph.names[state.focus]}`);
    }
  }

  keep(replace) {
    const fragment = address.write(this.graph, this.state);
    if (replace) location.replace(fragment);
    else location.hash = fragment;
    this.written = location.hash;
  }

  pick(box) {
    if (box.group) this.pickGroup(box.key);
    else this.focus(box.node);
  }

  open(box) {
    if (box.group) this.openGroup(this.groups.parse(box.key));
    else this.expandBoth(box.node);
  }

  turn(badge) {
    const { shown } = this.state;
    if (badge.fold) this.fold(badge.node, badge.direction, 0);
    else this.expand(badge.node, badge.direction, this.selection.levelsShown(shown, badge.node, badge.direction).complete + 1);
  }

  hover(box) {
    byId('hover').textContent = box?.name ?? '';
    byId('hover').hidden = !box?.name;
  }

  focus(node) {
    this.show({ ...this.state, focus: node });
    this.view.centre(`n${node}`);
  }

  pickGroup(key) {
    const { state } = this;
    const drawn = state?.mode === 'groups' && this.overview.groups.some((group) => group.key === key);
    if (!drawn || this.overview.edges.length > MOST_GROUP_EDGES) {
      this.show({ mode: 'groups', within: drawn ? state.within : null, pick: key });
      return;
    }
    this.note('');
    this.state = { ...state, pick: key };
    this.view.mark(`g${key}`);
    this.view.centre(`g${key}`);
    this.tell();
    this.keep(false);
  }

  // What is in the group with what it touches, where that can be drawn; else the groups in it; else what is in it alone.
  openGroup(group) {
    const members = new Set(this.groups.members(group));
    for (const shown of [this.groups.around(members), members]) {
      if (this.selection.fits(shown)) return this.show({ mode: 'nodes', shown, focus: null });
      if (this.groups.depthWithin(group) !== null) return this.show({ mode: 'groups', within: group.key, pick: null });
    }
    this.pickGroup(group.key);
    return this.refuse(members.size, 'Pick from the list beside, or search.');
  }

  showOverview() {
    this.show({ mode: 'groups', within: null, pick: null });
  }

  showSelection(replace = false) {
    this.show({ mode: 'nodes', shown: new Set(this.graph.selection), focus: this.graph.selection.length === 1 ? this.graph.selection[0] : null }, { replace });
  }

  // To a node, wherever it is: to its place if it is shown, else to a new drawing with it in the middle.
  goTo(node, options) {
    const { state, graph } = this;
    if (graph.types[node] === TYPE.DATASOURCE && this.selection.around(node).size === 1) {
      this.pickGroup(this.groups.keyOfSource(node));
    } else if (state?.mode === 'nodes' && state.shown.has(node)) {
      this.focus(node);
    } else {
      this.isolate(node, options);
    }
  }

  isolate(node, options) {
    const shown = this.selection.around(node);
    if (this.selection.fits(shown)) {
      this.show({ mode: 'nodes', shown, focus: node }, options);
    } else {
      this.show({ mode: 'nodes', shown: new Set([node]), focus: node }, options);
      this.note(`It has ${plural(shown.size - 1, 'neighbour')}, more than can be drawn beside it: they are listed beside.`);
    }
  }

  // To a node out of a list: beside what is shown.
  reveal(node) {
    const { state } = this;
    if (state.mode !== 'nodes') this.goTo(node);
    else if (state.shown.has(node)) this.focus(node);
    else this.show({ ...state, shown: new Set([...state.shown, node]), focus: node });
  }

  expand(node, direction, most) {
    const shown = this.selection.expand(this.state.shown, node, direction, most);
    if (this.selection.fits(shown)) {
      this.show({ mode: 'nodes', shown, focus: node });
      return;
    }
    const fit = this.selection.levelsThatFit(this.state.shown, node, direction);
    this.refuse(shown.size, `Fold or hide what is not needed, or ask for fewer levels ${SIDES[direction]}.`,
      fit ? [`Show ${plural(fit, 'level')}`, () => this.expand(node, direction, fit)] : null);
  }

  expandBoth(node) {
    const shown = new Set(this.state.shown);
    for (const each of this.selection.around(node)) shown.add(each);
    if (this.selection.fits(shown)) this.show({ mode: 'nodes', shown, focus: node });
    else this.refuse(shown.size, 'Expand one side, or pick from the lists beside.');
  }

  fold(node, direction, keep) {
    this.show({ mode: 'nodes', shown: this.selection.fold(this.state.shown, node, direction, Math.max(0, keep)), focus: node });
  }

  setLevels(node, direction, most) {
    const shown = this.selection.fold(this.state.shown, node, direction, most);
    const wider = this.selection.expand(shown, node, direction, most);
    if (this.selection.fits(wider)) this.show({ mode: 'nodes', shown: wider, focus: node });
    else this.expand(node, direction, most);
  }

  step(direction, outwards) {
    const { shown, focus } = this.state;
    if (focus === null || focus === undefined) return;
    const { complete, last } = this.selection.levelsShown(shown, focus, direction);
    if (outwards) this.expand(focus, direction, complete + 1);
    else this.fold(focus, direction, last - 1);
  }

  hide(node) {
    const shown = new Set(this.state.shown);
    shown.delete(node);
    if (shown.size === 0) this.showOverview();
    else this.show({ mode: 'nodes', shown, focus: null });
  }

  showCycle(node) {
    this.show({ mode: 'nodes', shown: new Set(this.graph.cycleOf(node)), focus: node });
  }

  // The arrow keys.
  move(key) {
    const { state } = this;
    const id = state.mode === 'groups' ? `g${state.pick}` : `n${state.focus}`;
    const box = this.view.next(id, key);
    if (box) this.pick(box);
  }

  enter() {
    const { state } = this;
    if (state.mode === 'groups' && state.pick) this.openGroup(this.groups.parse(state.pick));
    else if (state.mode === 'nodes' && state.focus !== null) this.expandBoth(state.focus);
  }

  refuse(nodes, advice = 'Search for a name, or open a group.', offer = null) {
    this.note(`That would draw ${plural(nodes, 'node')}; with their edges more than the ${count(MOST_ELEMENTS)} elements that can be read at once. ${advice}`, offer);
  }

  note(text, offer = null) {
    const place = byId('note');
    place.hidden = text === '';
    place.replaceChildren(text, ...(offer ? [' ', element('button', { type: 'button', onclick: offer[1] }, offer[0])] : []));
  }

  say(text) {
    byId('spoken').textContent = text;
  }

  save(blob, ending) {
    const link = element('a', { href: URL.createObjectURL(blob), download: `lineage.${ending}` });
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 10000);
  }
}

try {
  const data = byId('data');
  const graph = new Graph(JSON.parse(data.textContent));
  data.remove(); // the text of a large graph is no longer needed
  globalThis.lineagePage = new Page(graph);
  globalThis.lineagePage.start();
} catch (error) {
  byId('note').hidden = false;
  byId('note').textContent = `The graph cannot be shown: ${error.message}`;
  throw error;
}
