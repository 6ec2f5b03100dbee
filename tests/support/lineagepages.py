"""Graphs to open as pages, and a browser without a window to open them in."""

import json
import subprocess

from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service

HOSTILE = [
    "</script><script>document.title = 'run'</script>",
    "<img src=x onerror=\"document.title = 'run'\">",
    "<!-- a comment --> & &amp; &#60;",
    "line\nfeed, \ttab and  two blanks",
    "\u2028separators\u2029 [x] {y} \"quoted\" 'single' \\n %3C",
    "Größen 日本語 \U0001f600 \u202eturned",
    "javascript:document.title='run'",
    "n" * 300 + "END",
]


class Document:
    """A saved graph that is put together."""

    def __init__(self):
        self.nodes, self.edges = [], []

    def node(self, of, name, **more):
        self.nodes.append({"type": of, "name": name, "identity": f"{of}:{name}", **more})
        return len(self.nodes) - 1

    def edge(self, start, end, access, inferred=False):
        self.edges.append({"from": start, "to": end, "access": access, "inferred": inferred})

    def save(self, path):
        graph = {"format": "qvlineagegraph", "version": 1, "nodes": self.nodes, "edges": self.edges, "notes": []}
        path.write_text(json.dumps(graph), encoding="utf-8")


def small():
    """raw -> stage -> staged -> clean -> core -> report_a, report_b -> ...; a cycle; a table of many readers."""
    made = Document()
    source = {name: made.node("datasource", name) for name in ("Shop", "Warehouse")}

    def table(name):
        return made.node("table", name, source=source[name.split(".")[0]])

    def job(name, reads, writes):
        node = made.node("job", name, file=f"/srv/jobs/{name}.djf", kind="DataJob")
        for each in reads:
            made.edge(each, node, "read", inferred=each == reads[0] and name.startswith("batch_jobs/clean"))
        for each in writes:
            made.edge(node, each, "write")
        return node

    raw, staged, core = table("Shop.dbo.orders"), table("Warehouse.stage.orders"), table("Warehouse.dw.orders")
    job("batch_jobs/stage_orders", [raw], [staged])
    job("batch_jobs/clean_orders", [staged], [core])
    for letter in "ab":
        mart = table(f"Warehouse.mart.sales_{letter}")
        job(f"services/mart_{letter}", [core], [mart])
        job(f"services/report_{letter}", [mart], [])
    left, right = table("Warehouse.loop.left"), table("Warehouse.loop.right")
    job("services/there", [left], [right])
    job("services/back", [right], [left])
    table("Warehouse.dw.orders_archive")
    return made


def hostile():
    made = Document()
    for name in HOSTILE:
        table = made.node("table", name, file=name)
        made.edge(table, made.node("job", f"folder/{name}"), "read")
    return made


def large(nodes=50_000, edges=250_000):
    """Jobs that each read what was written shortly before; one table that everybody reads."""
    made = Document()
    sources = [made.node("datasource", f"Source{i}") for i in range(8)]
    tables = [made.node("table", f"Source{i % 8}.s{i % 50}.table_{i:05}", source=sources[i % 8]) for i in range(nodes // 2)]
    jobs = [made.node("job", f"area{i % 30:02}/load_{i:05}") for i in range(nodes - len(made.nodes))]
    for i, job in enumerate(jobs):
        made.edge(job, tables[i], "write")
        made.edge(tables[0], job, "read")
    back = 0
    while len(made.edges) < edges:
        back += 7
        for i in range(back + 1, min(len(jobs), back + 1 + edges - len(made.edges))):
            made.edge(tables[i - back], jobs[i], "read")
    return made


def write_page(build, work, name, document, *selected):
    """The page as the library writes it; selected are pairs of type and identity."""
    saved, page = work / f"{name}.json", work / f"{name}.html"
    document.save(saved)
    subprocess.run([build / "tests" / "lineagepage", saved, page, f"The {name} graph", *sum(selected, ())], check=True)
    return page.as_uri()


def start_browser(work):
    options = Options()
    for argument in ("headless=new", "no-sandbox", "disable-gpu", "disable-quic", "no-first-run", "disable-background-networking",
                     "disable-component-update", "disable-sync", "disable-dev-shm-usage", "window-size=1300,850",
                     f"user-data-dir={work / 'profile'}"):
        options.add_argument(f"--{argument}")
    options.add_experimental_option("prefs", {"download.default_directory": str(work / "downloads")})
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
