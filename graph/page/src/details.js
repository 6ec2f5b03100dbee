// What stands beside the drawing. Every name becomes a text node.

import { ACCESS, DOWN, TYPE, TYPES, TYPE_NAMES, UP } from './graph.js';
import { MOST_GROUP_EDGES, groupCount, groupTitle, groupType } from './scene.js';
import { count, plural } from './text.js';

const LISTED = 100;
const RELATIONS = [
  { direction: UP, access: 'read', title: 'Reads' },
  { direction: UP, access: 'write', title: 'Written by' },
  { direction: UP, access: 'via', title: 'Comes from' },
  { direction: DOWN, access: 'write', title: 'Writes' },
  { direction: DOWN, access: 'read', title: 'Read by' },
  { direction: DOWN, access: 'via', title: 'Goes to' },
];
const DIRECTIONS = [{ direction: UP, title: 'Upstream', key: 'u' }, { direction: DOWN, title: 'Downstream', key: 'd' }];

export function element(name, properties = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(properties)) {
    if (key.startsWith('on')) made.addEventListener(key.slice(2), value);
    else if (key.includes('-') || key === 'role') made.setAttribute(key, value);
    else made[key] = value;
  }
  made.append(...children.flat().filter((child) => child !== null && child !== undefined));
  return made;
}

export const nameOf = (text) => element('bdi', { className: 'name' }, text);
const sign = (type) => element('span', { className: `sign ${type}`, 'aria-hidden': 'true' });
const button = (text, onclick, properties = {}) => element('button', { type: 'button', onclick, ...properties }, text);

export class Details {
  constructor(place, graph, groups, selection, act) {
    Object.assign(this, { place, graph, groups, selection, act });
  }

  // Who uses a control of the details by keyboard stays with it.
  show(...parts) {
    const active = this.place.contains(document.activeElement) ? document.activeElement : null;
    this.place.replaceChildren(...parts.flat().filter(Boolean));
    this.place.scrollTop = 0;
    if (!active) return;
    const label = active.getAttribute('aria-label');
    const same = label && this.place.querySelector(`[aria-label="${label}"]:enabled`);
    (same || this.place).focus({ preventScroll: true });
  }

  // A list of which the first part is shown, and the rest when asked for.
  list(items, make) {
    const list = element('ul', { className: 'items' }, items.slice(0, LISTED).map(make));
    if (items.length <= LISTED) return list;
    const more = button(`Show all ${count(items.length)}`, () => {
      list.append(...items.slice(LISTED, 20 * LISTED).map(make));
      more.replaceWith(...(items.length > 20 * LISTED ? [element('p', { className: 'quiet' },
        `${count(items.length - 20 * LISTED)} more: search finds them.`)] : []));
    }, { className: 'more' });
    return element('div', {}, list, more);
  }

  nodeItem(shown) {
    return (node, inferred = false) => element('li', {}, element('button', {
      type: 'button', className: `item${shown?.has(node) ? ' shown' : ''}`, onclick: () => this.act.reveal(node),
      title: shown?.has(node) ? 'Shown: go there' : 'Add to what is shown',
    }, sign(TYPES[this.graph.types[node]]), nameOf(this.graph.names[node]),
    inferred ? element('span', { className: 'tag' }, 'inferred') : null));
  }

  section(title, ...children) {
    return element('section', {}, element('h3', {}, title), children);
  }

  node(node, shown) {
    const { graph } = this;
    const type = graph.types[node];
    const source = graph.sources[node];
    this.show(
      element('p', { className: 'kind' }, sign(TYPES[type]), TYPE_NAMES[type],
        graph.kinds[node] ? element('bdi', { className: 'name' }, `(${graph.kinds[node]})`) : null),
      element('h2', {}, nameOf(graph.names[node])),
      element('div', { className: 'levels' }, DIRECTIONS.map((each) => this.levels(node, shown, each))),
      element('div', { className: 'row' }, button('Only this', () => this.act.isolate(node), { title: 'This with its neighbours and nothing else (i)' }),
        button('Hide', () => this.act.hide(node), { title: 'Take it out of what is shown (Delete)' })),
      RELATIONS.map((relation) => this.relation(node, shown, relation)),
      type === TYPE.DATASOURCE ? this.tables(node, shown) : null,
      source >= 0 ? this.section('Data source', element('ul', { className: 'items' }, element('li', {}, element('button', {
        type: 'button', className: 'item', onclick: () => this.act.pickGroup(this.groups.keyOfSource(source)),
      }, sign('datasource'), nameOf(graph.names[source]))))) : null,
      this.cycle(node, shown),
      this.fact('File', graph.files[node]),
      this.fact('Identity', graph.identities[node]),
    );
  }

  levels(node, shown, { direction, title, key }) {
    const { complete, last, all, nodes } = this.selection.levelsShown(shown, node, direction);
    const set = (most) => this.act.setLevels(node, direction, most);
    const field = element('input', {
      type: 'number', min: 0, max: all, value: complete, disabled: all === 0, 'aria-label': `${title} levels shown`, className: 'number',
      onchange: (event) => set(Math.max(0, Math.min(all, Number.parseInt(event.target.value, 10) || 0))),
    });
    return element('div', { className: 'level', role: 'group', 'aria-label': title },
      element('span', { className: 'side' }, title),
      button('\u2212', () => this.act.fold(node, direction, last - 1), { disabled: last === 0, title: `Fold a level (Shift+${key})`, 'aria-label': `Fold a level ${title.toLowerCase()}` }),
      field,
      button('+', () => this.act.expand(node, direction, complete + 1), { disabled: complete === all, title: `Expand a level (${key})`, 'aria-label': `Expand a level ${title.toLowerCase()}` }),
      button('All', () => this.act.expand(node, direction, Infinity), { disabled: complete === all, 'aria-label': `Expand all levels ${title.toLowerCase()}` }),
      element('span', { className: 'quiet' }, all === 0 ? 'none' : `of ${count(all)}; ${plural(nodes, 'node')}`));
  }

  relation(node, shown, { direction, access, title }) {
    const { graph } = this;
    const edges = [...graph.edgesOf(node, direction)].filter((edge) => ACCESS[graph.access[edge]] === access);
    if (edges.length === 0) return null;
    const item = this.nodeItem(shown);
    return this.section(`${title} (${count(edges.length)})`,
      this.list(edges, (edge) => item(graph.other(edge, direction), graph.inferred[edge] === 1)));
  }

  tables(source, shown) {
    const found = [];
    for (let node = 0; node < this.graph.size; ++node) if (this.graph.sources[node] === source) found.push(node);
    return found.length ? this.section(`Tables (${count(found.length)})`, this.list(found, this.nodeItem(shown))) : null;
  }

  cycle(node, shown) {
    const members = this.graph.cycleOf(node);
    if (!members) return null;
    const item = this.nodeItem(shown);
    return this.section(`In a cycle of ${count(members.length)}`, this.list(members, (each) => item(each)),
      members.length > 1 ? button('Show the cycle', () => this.act.showCycle(node)) : null);
  }

  fact(title, value) {
    if (!value) return null;
    return this.section(title, element('div', { className: 'fact' }, element('code', {}, element('bdi', {}, value))));
  }

  group(group) {
    const members = this.groups.members(group);
    const item = this.nodeItem(null);
    const filter = element('input', {
      type: 'search', placeholder: 'Filter', 'aria-label': 'Filter this list', className: 'filter',
      oninput: () => {
        const wanted = filter.value.toLowerCase();
        list.replaceChildren(this.list(members.filter((node) => this.graph.names[node].toLowerCase().includes(wanted)), (node) => item(node)));
      },
    });
    const list = element('div', {}, this.list(members, (node) => item(node)));
    this.show(
      element('p', { className: 'kind' }, sign(groupType(group)), groupType(group) === 'datasource' ? 'Data source' : group.kind === 'table' ? 'Schema' : 'Folder'),
      element('h2', {}, nameOf(groupTitle(group))),
      element('p', { className: 'quiet' }, groupCount({ ...group, count: members.length })),
      element('div', { className: 'row' }, button('Open', () => this.act.openGroup(group), { title: 'Show what is in it (Enter)' })),
      members.length > 8 ? filter : null,
      list,
    );
  }

  overview({ groups, edges }) {
    const { graph } = this;
    const counts = [[TYPE.JOB, 'job'], [TYPE.TABLE, 'table'], [TYPE.FILE, 'file'], [TYPE.DATASOURCE, 'data source']]
      .map(([type, name]) => [graph.countOf(type), name]).filter(([number]) => number > 0).map(([number, name]) => plural(number, name));
    const largest = [...groups].sort((a, b) => b.count - a.count);
    this.show(
      element('p', { className: 'kind' }, 'Overview'),
      element('h2', {}, nameOf(graph.title || 'Lineage')),
      element('p', { className: 'quiet' }, `${counts.join(', ')}; ${plural(graph.edgeCount, 'edge')}.`),
      graph.size ? element('p', {}, 'Search for a name, or open a group: a data source holds tables, a folder holds jobs.') : null,
      edges.length > MOST_GROUP_EDGES ? element('p', {}, 'The groups have too many connections to draw all: pick one to see its own.') : null,
      graph.selection.length ? element('div', { className: 'row' }, button(`Show the selection (${count(graph.selection.length)})`, () => this.act.showSelection())) : null,
      this.section('Groups', this.list(largest, (group) => element('li', {}, element('button', {
        type: 'button', className: 'item', onclick: () => this.act.pickGroup(group.key), ondblclick: () => this.act.openGroup(group),
      }, sign(groupType(group)), nameOf(groupTitle(group)), element('span', { className: 'tag' }, groupCount(group)))))),
      graph.cycles.length ? this.section(`Cycles (${count(graph.cycles.length)})`, this.list(graph.cycles, (members) => element('li', {},
        element('button', { type: 'button', className: 'item', onclick: () => this.act.showCycle(members[0]) },
          sign(TYPES[graph.types[members[0]]]), nameOf(graph.names[members[0]]), element('span', { className: 'tag' }, `of ${count(members.length)}`))))) : null,
    );
  }

  set(shown) {
    const item = this.nodeItem(shown);
    this.show(
      element('p', { className: 'kind' }, 'Shown'),
      element('h2', {}, nameOf(this.graph.title || 'Lineage')),
      element('p', { className: 'quiet' }, `${plural(shown.size, 'node')}. Click one for what it reads and writes.`),
      this.list([...shown], (node) => item(node)),
    );
  }
}
