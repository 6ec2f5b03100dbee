#!/usr/bin/python3
"""networkx builds the graph of the file and writes it as GraphML."""
import io

from peer import peer


def edges_of(run):
    if run.is_short or not run.words:
        return [(f"table_{i}", f"table_{i // 2}") for i in range(1, 50)]
    with open(run.words[0], encoding="utf-8") as lines:
        return [line.rstrip("\n").split("\t") for line in lines]


def work(run):
    import networkx

    edges = edges_of(run)
    graph = run.measure(lambda: networkx.DiGraph(edges))
    text = io.BytesIO()
    run.measure(lambda: networkx.write_graphml(graph, text))
    if text.getvalue().count(b"<edge ") != graph.number_of_edges():
        raise SystemExit("edges are missing")


peer("networkx", "networkx", work)
