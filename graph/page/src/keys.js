// What the keys do; page.html tells it in its help.

import { DOWN, UP } from './graph.js';

export function listenToKeys(page) {
  const byId = (id) => document.getElementById(id);
  const inGraph = {
    ArrowLeft: () => page.move('ArrowLeft'), ArrowRight: () => page.move('ArrowRight'),
    ArrowUp: () => page.move('ArrowUp'), ArrowDown: () => page.move('ArrowDown'),
    Enter: () => page.enter(),
    Delete: () => page.state.mode === 'nodes' && page.state.focus !== null && page.hide(page.state.focus),
  };
  const anywhere = {
    '/': () => byId('search').focus(), '?': () => byId('help-text').showModal(), o: () => page.showOverview(),
    s: () => page.graph.selection.length && page.showSelection(), f: () => page.view.fit(), g: () => byId('graph').focus(),
    u: () => page.step(UP, true), U: () => page.step(UP, false), d: () => page.step(DOWN, true), D: () => page.step(DOWN, false),
    i: () => page.state.mode === 'nodes' && page.state.focus !== null && page.isolate(page.state.focus),
    c: () => page.state.mode === 'nodes' && page.state.focus !== null && page.view.centre(`n${page.state.focus}`),
    '+': () => page.view.zoomBy(1.25), '=': () => page.view.zoomBy(1.25), '-': () => page.view.zoomBy(0.8),
    Escape: () => page.note(''),
  };
  addEventListener('keydown', (event) => {
    if (event.ctrlKey || event.metaKey || event.altKey || byId('help-text').open) return;
    if (event.target.closest('input, textarea, select')) return;
    const action = (event.target === byId('graph') && inGraph[event.key]) || anywhere[event.key];
    if (!action) return;
    event.preventDefault();
    action();
  });
}
