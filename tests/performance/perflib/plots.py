"""Plots with gnuplot, as SVG."""

import subprocess

from .session import Failure

_STYLE = """set terminal svg size 640,440 font 'sans-serif,11' background 'white' noenhanced
set encoding utf8
set grid lc rgb '#dddddd'
set key outside below left Left reverse samplen 2 maxcols 1 font ',10'
set border 3
set tics nomirror
set yrange [0:*]
"""


def _quoted(text):
    return "'" + text.replace("'", "''") + "'"


def lines(path, title, x_label, y_label, series, *, log_x=False, log_y=False):
    """One line with points for each of {name: [(x, y)]}; what has no point is left out. `log_y` wants values above 0."""
    series = {name: [(x, y) for x, y in points if y is not None] for name, points in series.items()}
    series = {name: points for name, points in series.items() if points}
    if not series:
        return
    script = _STYLE + f"set output {_quoted(path)}\nset title {_quoted(title)}\n"
    script += f"set xlabel {_quoted(x_label)}\nset ylabel {_quoted(y_label)}\n"
    script += "set logscale x\n" if log_x else "set xrange [0:*]\n"
    script += "unset yrange\nset logscale y\n" if log_y else ""
    script += "plot " + ", ".join(f"'-' with linespoints pt 7 ps 0.5 lw 2 title {_quoted(name)}" for name in series) + "\n"
    for points in series.values():
        script += "".join(f"{x} {y}\n" for x, y in sorted(points)) + "e\n"
    done = subprocess.run(["gnuplot"], input=script, text=True, capture_output=True, check=False)
    if done.returncode:
        raise Failure(f"gnuplot: {done.stderr.strip()[-300:]}")
