// What is shown is one of two: groups (the overview, with one group opened or none, and one picked or none), or a set
// of nodes with one in focus or none. These functions make the next set from the last; nothing here draws.

import { DOWN, UP } from './graph.js';

export const MOST_ELEMENTS = 1500; // nodes and edges that are drawn at once

export class Selection {
  constructor(graph) {
    this.graph = graph;
  }

  fits(shown) {
    return this.graph.elements(shown, MOST_ELEMENTS) <= MOST_ELEMENTS;
  }

  around(node) {
    return new Set([node, ...this.graph.neighbours(node, UP), ...this.graph.neighbours(node, DOWN)]);
  }

  // The levels of which every node is shown, the last one with any shown, and all there are.
  levelsShown(shown, node, direction) {
    const levels = this.graph.levels(node, direction);
    let complete = 0;
    while (complete + 1 < levels.length && levels[complete + 1].every((each) => shown.has(each))) ++complete;
    let last = levels.length - 1;
    while (last > 0 && !levels[last].some((each) => shown.has(each))) --last;
    const nodes = levels.reduce((sum, level) => sum + level.length, -1);
    return { complete, last, all: levels.length - 1, nodes };
  }

  expand(shown, node, direction, most) {
    const next = new Set(shown);
    for (const level of this.graph.levels(node, direction, most)) level.forEach((each) => next.add(each));
    return next;
  }

  // The most levels that can be drawn beside what is shown.
  levelsThatFit(shown, node, direction) {
    const next = new Set(shown);
    let count = 0;
    for (const level of this.graph.levels(node, direction).slice(1)) {
      level.forEach((each) => next.add(each));
      if (!this.fits(next)) break;
      ++count;
    }
    return count;
  }

  // Takes away what is farther than `keep` levels on one side, and what hung on nothing else. A node that a cycle puts
  // on both sides belongs to the nearer one.
  fold(shown, node, direction, keep) {
    const other = new Map();
    this.graph.levels(node, direction === UP ? DOWN : UP).forEach((level, far) => level.forEach((each) => other.set(each, far)));
    const next = new Set(shown);
    this.graph.levels(node, direction).forEach((level, far) => {
      if (far <= keep) return;
      for (const each of level) if (far <= (other.get(each) ?? Infinity)) next.delete(each);
    });
    if (next.size === shown.size) return next;
    const before = this.connected(shown, node);
    const after = this.connected(next, node);
    for (const each of before) if (!after.has(each)) next.delete(each);
    return next;
  }

  connected(shown, node) {
    const found = new Set([node]);
    for (const at of found) {
      for (const direction of [UP, DOWN]) {
        for (const edge of this.graph.edgesOf(at, direction)) {
          const other = this.graph.other(edge, direction);
          if (shown.has(other)) found.add(other);
        }
      }
    }
    return found;
  }
}
