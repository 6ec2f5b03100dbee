// Names are anybody's text. In the page they are text nodes; on the canvas and in pictures they are one line, and what
// has no shape, breaks lines or turns the direction of writing is shown as a sign.

const UNSEEN = /[\u0000-\u001f\u007f-\u009f\u2028\u2029\u200e\u200f\u202a-\u202e\u2066-\u2069\ufeff]/g;
const NAMED = new Map([['\n', '\u21b5'], ['\r', '\u240d'], ['\t', '\u21e5'], ['\u2028', '\u21b5'], ['\u2029', '\u00b6']]);

export function oneLine(text) {
  return text.replace(UNSEEN, (unseen) => NAMED.get(unseen) ?? (unseen < ' ' ? String.fromCharCode(0x2400 + unseen.charCodeAt(0)) : '\u25af'));
}

// Half of a surrogate pair can be shown, but neither encoded nor saved.
export function wellFormed(text) {
  return text.replace(/[\ud800-\udbff](?![\udc00-\udfff])|(?<![\ud800-\udbff])[\udc00-\udfff]/g, '\ufffd');
}

// The parts of a name: of a table's data path at its dots (a part in double quotes is one), of other names at slashes.
export function partsOf(type, name) {
  if (type !== 'table') return name.split('/');
  return name.includes('"') ? name.match(/(?:"[^"]*"|[^."])+|(?<=\.|^)(?=\.|$)|"/gs) ?? [name] : name.split('.');
}

// The last part of a name and what stands before it.
export function splitName(type, name) {
  const last = partsOf(type, name).at(-1);
  const before = name.length - last.length - 1;
  return before <= 0 || last === '' ? ['', name] : [name.slice(0, before), last];
}

const segments = (text) => (Intl.Segmenter ? Array.from(new Intl.Segmenter().segment(text), (part) => part.segment) : Array.from(text));

// Takes out the middle of a text until `fits` takes the rest.
export function shorten(text, fits) {
  text = oneLine(text);
  if (fits(text)) return text;
  const parts = segments(text.length > 4000 ? text.slice(0, 2000) + text.slice(-2000) : text);
  let least = 0;
  let most = parts.length - 1;
  const keep = (count) => `${parts.slice(0, Math.ceil(count / 2)).join('')}\u2026${parts.slice(parts.length - Math.floor(count / 2)).join('')}`;
  while (least < most) {
    const middle = Math.ceil((least + most) / 2);
    if (fits(keep(middle))) least = middle;
    else most = middle - 1;
  }
  return keep(least);
}

export const count = (number) => number.toLocaleString('en');
export const plural = (number, one, many = `${one}s`) => `${count(number)} ${number === 1 ? one : many}`;
