"""Writes docs/benchmarks.md and its plots from the figures of the benchmarks."""

import dataclasses
import html
import math
import re
import subprocess

OWN = "glintmark"
COLOURS = ["#1f6feb", "#d29922", "#2da44e", "#8250df", "#cf222e", "#57606a"]  # our program first

INTRODUCTION = (
    "Written by `scripts/bench`, which builds and runs everything under `bench/`. A figure in "
    "bold is over its limit."
)
RENEWAL = (
    "A run renews the figures of the benchmarks that it names, or of all if it names none. The "
    "others keep theirs."
)

LETTERS_IN_A_LINE = 64  # of labels below a plot that are not turned
MINIMUM_MARGIN = 14  # letters, left of the first bar
SLANTED_LETTERS_BESIDE = 14  # of a slanted label, which fit without a wider margin

PLOT = """set terminal svg size {width},460 font "sans-serif,13" background "#ffffff"
set output "{file}"
set title "{title}" font ",15"
set ylabel "{label}"
set style data histograms
set style histogram clustered gap 1
set style fill solid 0.9 border -1
set boxwidth 0.9
set grid ytics linecolor "#d0d7de"
set key {key}
set xtics {labels} noenhanced
set border 3
set lmargin {margin}
set tics nomirror
{scale}
{line}
plot {series}
"""


@dataclasses.dataclass
class Question:
    benchmark: str
    text: str
    answer: str  # how to read the plot
    what: str  # the figures that the plot shows
    label: str  # of the plot's axis
    beside: str = ""  # the program whose figures are 1 in the plot; "limit": the limits are 1
    logarithmic: bool = False


def row_key(figure):
    return figure["at"], figure["what"], figure["unit"]


def rows_of(figures):
    """(case, what, unit) -> program -> figure, in the order of measurement."""
    rows = {}
    for figure in figures:
        rows.setdefault(row_key(figure), {})[figure["of"]] = figure
    return rows


def subjects_of(figures):
    names = dict.fromkeys(figure["of"] for figure in figures)
    return sorted(names, key=lambda name: name != OWN)  # our program first


def maximum_of(row):
    return next(
        (figure["maximum"] for figure in row.values() if figure["maximum"] is not None), None
    )


# ---- tables -------------------------------------------------------------------------------------


def shown(value):
    if value == 0 or value == int(value) and abs(value) < 1e6:
        return f"{int(value):,}"
    digits = max(0, 2 - int(math.floor(math.log10(abs(value)))))
    return f"{value:,.{min(digits, 4)}f}"


def table(figures):
    subjects = subjects_of(figures)
    has_cases = any(figure["at"] for figure in figures)
    head = (["Case"] if has_cases else []) + ["Figure", *subjects, "Limit"]
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    for (at, what, unit), row in rows_of(figures).items():
        cells = [shown(row[name]["value"]) if name in row else "" for name in subjects]
        maximum = maximum_of(row)
        limited = [figure for figure in row.values() if figure["maximum"] is not None]
        if any(figure["value"] > maximum for figure in limited):
            cells[0] = f"**{cells[0]}**"
        name = f"{what} ({unit})" if unit else what
        limit = shown(maximum) if maximum is not None else ""
        case = [html.escape(at)] if has_cases else []
        lines.append("| " + " | ".join([*case, html.escape(name), *cells, limit]) + " |")
    return lines


# ---- plots --------------------------------------------------------------------------------------


def divisor(question, row):
    """The figure that is 1 in the plot of a row; None if it is not known."""
    if not question.beside:
        return 1
    if question.beside == "limit":
        return maximum_of(row)
    reference = row.get(question.beside)
    return reference["value"] if reference and reference["value"] > 0 else None


def plotted_rows(question, figures):
    """[label, series -> multiple] for each group of bars. A series is a program or, if all figures
    are of one program, a kind of figure."""
    rows = [
        (at, what, row, divisor(question, row))
        for (at, what, _), row in rows_of(figures).items()
        if re.fullmatch(question.what, what)
    ]
    whats = {what for _, what, _, _ in rows}
    cases = {at for at, _, _, _ in rows}
    groups = {}
    for at, what, row, by in rows:
        values = {
            name: figure["value"] / by
            for name, figure in row.items()
            if by and name != question.beside
        }
        if len(values) == 1 and len(whats) > 1 and len(cases) > 1:
            groups.setdefault(at, {})[what] = next(iter(values.values()))
        elif values:
            label = at if len(whats) == 1 and at else f"{at}: {what}" if at else what
            groups.setdefault(label, {}).update(values)
    return list(groups.items())


def line_of(question, figures):
    """The height and the text of the plot's line."""
    if question.beside == "limit":
        return 1, "the limit"
    if question.beside:
        return 1, question.beside
    limits = {
        maximum_of(row)
        for (_, what, _), row in rows_of(figures).items()
        if re.fullmatch(question.what, what)
    } - {None}
    return (limits.pop(), "the limit") if len(limits) == 1 else (None, "")


def gnuplot_line(question, figures):
    height, text = line_of(question, figures)
    if height is None:
        return ""
    return (
        f"set arrow from graph 0, first {height} to graph 1, first {height} nohead "
        f'linecolor "#cf222e" linewidth 2 dashtype 2 front\n'
        f'set label "{text}" at graph 1, first {height} right offset -0.5,0.6 '
        f'textcolor "#cf222e" front'
    )


def scale(question, rows, figures):
    values = [value for _, row in rows for value in row.values() if value > 0]
    line, _ = line_of(question, figures)
    top = max([*values, line or 0])
    if not question.logarithmic:
        return f"set yrange [0:{top * 1.25}]"
    bottom = 10 ** math.floor(math.log10(min([*values, line or top]) * 0.99))
    return f'set logscale y\nset format y "%g"\nset yrange [{bottom}:{top * 4}]'


def plot(question, title, figures, file):
    rows = plotted_rows(question, figures)
    names = sorted(dict.fromkeys(name for _, row in rows for name in row), key=lambda n: n != OWN)
    lines = []
    for label, row in rows:
        values = [str(row[name]) if row.get(name, 0) > 0 else "NaN" for name in names]
        lines.append(" ".join(['"' + label.replace('"', "'") + '"', *values]))
    data = "\n".join(lines)
    colours = COLOURS[1:] if question.beside == OWN else COLOURS
    series = []
    for number, name in enumerate(names):
        colour = f'linecolor "{colours[number % len(colours)]}"'
        series.append(f'$data using {number + 2}:xtic(1) title "{name}" {colour}')
    fits = max(len(label) for label, _ in rows) * len(rows) <= LETTERS_IN_A_LINE
    beside = 0 if fits else len(rows[0][0]) - SLANTED_LETTERS_BESIDE
    script = f"$data << END\n{data}\nEND\n" + PLOT.format(
        file=file,
        title=title,
        label=question.label,
        series=", ".join(series),
        width=max(760, 22 * len(rows) * (len(names) + 1)),
        key="outside bottom center horizontal Left reverse" if len(names) > 1 else "off",
        labels="norotate center" if fits else "rotate by 35 right",
        margin=max(MINIMUM_MARGIN, beside),
        scale=scale(question, rows, figures),
        line=gnuplot_line(question, figures),
    )
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


# ---- the page -----------------------------------------------------------------------------------


def summary(results):
    lines = ["| Question | Limits | Time |", "|---|---|---|"]
    for result in results:
        held = "held" if result["held"] else "**missed**"
        name = result["name"]
        question = f"[{result['question'].text}](#{name.lower()})"
        lines.append(f"| {question} | {held} | {result['seconds']:.0f} s |")
    return lines


def section(result, folder):
    question, name = result["question"], result["name"]
    lines = ["", f"## {name}", "", f"{question.text} {question.answer}", ""]
    lines += [f"`{result['command']}`", ""]
    if not result["figures"]:
        return [*lines, "It wrote no figures."]
    plot(question, question.text, result["figures"], folder / f"{name}.svg")
    return [*lines, f"![{question.label}]({folder.name}/{name}.svg)", "", *table(result["figures"])]


def write(page, facts, results):
    """`results`: name, question, command, seconds, held and figures of each benchmark."""
    folder = page.with_suffix("")
    folder.mkdir(exist_ok=True)
    lines = ["# Benchmarks", "", INTRODUCTION, "", *(f"- {fact}" for fact in facts), ""]
    lines += [RENEWAL, ""]
    lines += summary(results)
    for result in results:
        lines += section(result, folder)
    page.write_text("\n".join(lines) + "\n")
