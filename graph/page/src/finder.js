// The search field with its list: a combobox whose list is moved through with the arrow keys.

import { TYPES, TYPE_NAMES } from './graph.js';
import { element, nameOf } from './details.js';
import { plural } from './text.js';

const LISTED = 40;

export class Finder {
  constructor(field, list, status, search, choose) {
    Object.assign(this, { field, list, status, search, choose, nodes: [], at: -1 });
    field.addEventListener('input', () => this.look());
    field.addEventListener('focus', () => this.nodes.length && this.open(true));
    field.addEventListener('keydown', (event) => this.key(event));
    field.addEventListener('blur', () => this.open(false));
    list.addEventListener('mousedown', (event) => event.preventDefault()); // the field keeps the focus
    list.addEventListener('click', (event) => this.take(Number(event.target.closest('[role=option]')?.dataset.at ?? -1)));
  }

  look() {
    const { nodes, count } = this.search.find(this.field.value, LISTED);
    const { names, types } = this.search.graph;
    this.nodes = nodes;
    this.list.replaceChildren(...nodes.map((node, i) => {
      const option = element('li', { role: 'option', id: `option${i}`, 'aria-selected': 'false' },
        element('span', { className: `sign ${TYPES[types[node]]}`, 'aria-hidden': 'true' }), nameOf(names[node]),
        element('span', { className: 'tag' }, TYPE_NAMES[types[node]]));
      option.dataset.at = i;
      return option;
    }));
    const typed = this.field.value.trim() !== '';
    if (typed && count === 0) this.list.append(element('li', { className: 'quiet' }, 'No name holds this.'));
    if (count > nodes.length) this.list.append(element('li', { className: 'quiet' }, `and ${plural(count - nodes.length, 'more', 'more')}: type on to narrow`));
    this.status.textContent = typed ? plural(count, 'match', 'matches') : '';
    this.open(typed);
    this.mark(nodes.length ? 0 : -1);
  }

  open(wanted) {
    this.list.hidden = !wanted;
    this.field.setAttribute('aria-expanded', String(wanted));
  }

  mark(at) {
    const options = this.list.querySelectorAll('[role=option]');
    options[this.at]?.setAttribute('aria-selected', 'false');
    this.at = at;
    if (options[at]) {
      options[at].setAttribute('aria-selected', 'true');
      options[at].scrollIntoView({ block: 'nearest' });
      this.field.setAttribute('aria-activedescendant', options[at].id);
    } else {
      this.field.removeAttribute('aria-activedescendant');
    }
  }

  key(event) {
    if (event.key === 'ArrowDown' || event.key === 'ArrowUp') {
      const step = event.key === 'ArrowDown' ? 1 : -1;
      if (this.list.hidden) this.open(this.nodes.length > 0);
      if (this.nodes.length) this.mark((this.at + step + this.nodes.length) % this.nodes.length);
    } else if (event.key === 'Enter') {
      this.take(this.at);
    } else if (event.key === 'Escape') {
      if (this.list.hidden) this.field.value = '';
      this.open(false);
    } else {
      return;
    }
    event.preventDefault();
    event.stopPropagation();
  }

  take(at) {
    const node = this.nodes[at];
    if (node === undefined) return;
    this.open(false);
    this.choose(node);
  }
}
