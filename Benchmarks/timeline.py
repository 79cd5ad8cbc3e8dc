#!/usr/bin/env python3
"""Where the time of a timeline went: quendra --timeline FILE, or QUENDRA_TIMELINE=FILE with Benchmarks/Work.cpp.

    Benchmarks/timeline.py FILE [--svg PICTURE] [--title TEXT]

Prints for each kind of bar how often it came, and its time without the bars inside it. The picture needs python3-matplotlib.
"""
import argparse
import collections
import json
import pathlib
import statistics

COLOURS = {"function": "#9ecae1", "connection": "#fdae6b", "operation": "#3182bd"}


def load(path):
    text = pathlib.Path(path).read_text(encoding="utf-8").rstrip()
    return json.loads(text if text.endswith("]") else text + "]")  # a process that was killed wrote no bracket


def bars_of(events):
    """Each bar: thread, depth, name, category, begin and length in microseconds, and the length without the bars inside it."""
    bars, opened = [], collections.defaultdict(list)
    for event in events:
        stack = opened[event["tid"]]
        if event["ph"] == "B":
            stack.append([event, 0.0])
        elif event["ph"] == "E":
            begin, inside = stack.pop()
            length = event["ts"] - begin["ts"]
            if stack:
                stack[-1][1] += length
            bars.append((event["tid"], len(stack), begin["name"], begin["cat"], begin["ts"], length, length - inside))
    return bars


def show(bars):
    kinds = collections.defaultdict(list)
    for _, _, name, _, _, _, own in bars:
        kinds[name].append(own)
    total = sum(sum(each) for each in kinds.values())
    print(f"{'bar':52} {'count':>7} {'median us':>10} {'share':>6}")
    for name, each in sorted(kinds.items(), key=lambda kind: -sum(kind[1])):
        print(f"{name:52} {len(each):7} {statistics.median(each):10.1f} {sum(each) / total:6.1%}")


def draw(bars, path, title):
    import matplotlib

    matplotlib.use("svg")
    matplotlib.rcParams["svg.hashsalt"] = "quendra"
    matplotlib.rcParams["svg.fonttype"] = "none"
    from matplotlib import pyplot

    first = min(bar[4] for bar in bars)
    whole = max(bar[4] + bar[5] for bar in bars) - first
    depths = max(bar[1] for bar in bars) + 1
    threads = sorted({bar[0] for bar in bars})
    figure, axes = pyplot.subplots(figsize=(11, 0.6 + 0.3 * depths * len(threads)))
    for thread, depth, name, category, begin, length, _ in bars:
        if length < whole / 1000:
            continue  # not to be seen
        row = threads.index(thread) * depths + depth
        colour = COLOURS["operation" if depth == 0 else category]
        axes.broken_barh([((begin - first) / 1000, length / 1000)], (row, 0.9), facecolors=colour, edgecolors="white", linewidth=0.4)
        label = name.split("::")[-1]
        if length > whole * 0.009 * len(label):
            axes.text((begin - first + whole / 300) / 1000, row + 0.5, label, fontsize=7, va="center", clip_on=True)
    axes.set(ylim=(depths * len(threads), 0), xlim=(0, whole / 1000), yticks=[], xlabel="milliseconds", title=title)
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("file")
    parser.add_argument("--svg")
    parser.add_argument("--title", default="")
    arguments = parser.parse_args()
    bars = bars_of(load(arguments.file))
    show(bars)
    if arguments.svg:
        draw(bars, arguments.svg, arguments.title)


main()
