#!/usr/bin/env python3
"""Draws the growth curves that vantamo_speed --growth --json has measured, as SVG files.

usage: plot.py FILE.json FOLDER
"""

import json
import subprocess
import sys
from pathlib import Path

CURVES = {
    "attributes": ("attributes of an event", "µs for half of the calls", False),
    "threads": ("threads that fire", "µs for half of the calls", False),
    "backlog": ("messages waiting", "µs for half of the calls", True),
    "backlogRate": ("messages waiting", "messages delivered a second", True),
}


def draw(name, points, folder):
    x, y, logarithmic = CURVES[name]
    rows = "\n".join(f"{at} {value}" for at, value in points)
    script = f"""
set terminal svg size 420,260 font "sans-serif,11" background "white"
set output "{folder / (name + '.svg')}"
set xlabel "{x}"
set ylabel "{y}"
set yrange [0:*]
set grid
unset key
{"set logscale x" if logarithmic else ""}
$points << END
{rows}
END
plot $points with linespoints linewidth 2 pointtype 7 linecolor rgb "#1f6f8b"
"""
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    growth = json.loads(Path(sys.argv[1]).read_text())["growth"]
    folder = Path(sys.argv[2])
    folder.mkdir(parents=True, exist_ok=True)
    for name in CURVES:
        if name not in growth:
            sys.exit(f"{sys.argv[1]}: no curve {name}; measured without --growth?")
        draw(name, growth[name], folder)


main()
