// Reads a flowchart (standard input) with Mermaid's own parser, and prints it as JSON: nodes (names) and edges (pairs of
// names).
import { readFileSync } from "node:fs";
import { JSDOM } from "jsdom";

const { window } = new JSDOM("");
globalThis.window = window;
globalThis.document = window.document;
const { default: mermaid } = await import("mermaid");

// The names of characters, which the parser keeps aside until a text is shown.
function shown(text) {
  const element = window.document.createElement("textarea");
  element.innerHTML = text.replaceAll("ﬂ°°", "&#").replaceAll("ﬂ°", "&").replaceAll("¶ß", ";");
  return element.textContent;
}

mermaid.initialize({ maxTextSize: 10_000_000, maxEdges: 1_000_000 });
const diagram = await mermaid.mermaidAPI.getDiagramFromText(readFileSync(0, "utf8"));
const names = new Map([...diagram.db.getVertices()].map(([id, vertex]) => [id, shown(vertex.text)]));
const edges = diagram.db.getEdges().map((edge) => [names.get(edge.start), names.get(edge.end)]);
process.stdout.write(JSON.stringify({ nodes: [...names.values()].sort(), edges }));
