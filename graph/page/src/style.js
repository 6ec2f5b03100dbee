// The colours stand once, in the style sheet of the page; the drawing takes them from there.

const NAMES = ['ground', 'ink', 'muted', 'job', 'job-line', 'table', 'table-line', 'file', 'file-line', 'datasource',
  'datasource-line', 'read', 'write', 'via', 'focus', 'badge', 'badge-ink'];

export function palette(element = document.documentElement) {
  const style = getComputedStyle(element);
  return Object.fromEntries(NAMES.map((name) => [name, style.getPropertyValue(`--${name}`).trim()]));
}

// The outline of each type: [Cytoscape's shape, radius of its corners].
export const SHAPES = {
  job: ['round-rectangle', 23], table: ['rectangle', 0], file: ['cut-rectangle', 10], datasource: ['barrel', 0],
};

// The head of each arrow: [shape, fill].
export const ARROWS = { read: ['triangle', 'hollow'], write: ['triangle', 'filled'], via: ['vee', 'filled'] };

export function styleOf(colours, font, size) {
  return [
    {
      selector: 'node.box',
      style: {
        width: 'data(width)', height: 'data(height)', label: 'data(label)', 'font-family': font, 'font-size': size, color: colours.ink,
        'text-valign': 'center', 'text-halign': 'center', 'text-wrap': 'wrap', 'line-height': 1.25, 'border-width': 1.5,
        'min-zoomed-font-size': 5,
      },
    },
    ...Object.entries(SHAPES).map(([type, [shape, radius]]) => ({
      selector: `node.${type}`,
      style: {
        shape, 'background-color': colours[type], 'border-color': colours[`${type}-line`],
        ...(radius ? { 'corner-radius': `${radius}px` } : {}),
      },
    })),
    { selector: 'node.group', style: { 'border-width': 4, 'border-style': 'double', 'font-weight': 600 } },
    {
      selector: 'node.focus',
      style: {
        'border-width': 3, 'border-style': 'solid', 'border-color': colours.focus, 'underlay-color': colours.focus, 'underlay-opacity': 0.22,
        'underlay-padding': 6, 'z-index': 5,
      },
    },
    {
      selector: 'node.badge',
      style: {
        width: 'data(width)', height: 18, shape: 'round-rectangle', 'corner-radius': '9px', label: 'data(label)', 'font-family': font,
        'font-size': 11, 'font-weight': 700, color: colours['badge-ink'], 'text-valign': 'center', 'text-halign': 'center',
        'background-color': colours.badge, 'border-width': 1.5, 'border-color': colours.ground, 'z-index': 9, 'min-zoomed-font-size': 5,
      },
    },
    {
      selector: 'edge',
      style: {
        width: 'data(weight)', 'curve-style': 'unbundled-bezier', 'edge-distances': 'node-position',
        'arrow-scale': 1.15, label: 'data(label)', 'text-margin-y': 'data(lift)', 'font-family': font, 'font-size': 11, color: colours.ink,
        'text-background-color': colours.ground, 'text-background-opacity': 0.9, 'text-background-padding': 2, 'min-zoomed-font-size': 6,
      },
    },
    {
      selector: 'edge[start]',
      style: {
        'control-point-distances': 'data(distances)', 'control-point-weights': 'data(weights)', 'source-endpoint': 'data(start)',
        'target-endpoint': 'data(end)',
      },
    },
    { selector: 'edge.loop', style: { 'curve-style': 'bezier', 'loop-direction': '0deg', 'loop-sweep': '50deg', 'control-point-step-size': 50 } },
    ...Object.entries(ARROWS).map(([access, [shape, fill]]) => ({
      selector: `edge.${access}`,
      style: { 'line-color': colours[access], 'target-arrow-color': colours[access], 'target-arrow-shape': shape, 'target-arrow-fill': fill },
    })),
    { selector: 'edge.inferred', style: { 'line-style': 'dashed', 'line-dash-pattern': [6, 4] } },
    { selector: 'edge.near', style: { width: 2.5, 'z-index': 4 } },
    { selector: 'edge.near[weight > 3]', style: { width: 'data(weight)' } },
  ];
}
