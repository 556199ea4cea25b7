"""Measured figures and their limits."""

import json


class Figures:
    """Prints each figure and keeps it; notes which limits were passed."""

    def __init__(self):
        self.figures = []

    def add(self, what, value, unit, maximum=None, of="glintmark", at=""):
        """`maximum`: the limit. `of`: the program that was measured. `at`: the case, if there are
        several."""
        limit = ""
        if maximum is not None:
            limit = f"  (at most {maximum:g})" if value <= maximum else f"  OVER {maximum:g}"
        case = at + ": " if at else ""
        print(f"{of:12} {case}{what:44} {value:12.3f} {unit}{limit}", flush=True)
        figure = {
            "what": what,
            "of": of,
            "at": at,
            "value": value,
            "unit": unit,
            "maximum": maximum,
        }
        self.figures.append(figure)

    @property
    def failures(self):
        limited = [figure for figure in self.figures if figure["maximum"] is not None]
        return [figure["what"] for figure in limited if figure["value"] > figure["maximum"]]

    def finish(self, options):
        """Writes the figures to the file that the options name. Returns the exit status."""
        if options.json:
            options.json.write_text(json.dumps(self.figures, indent=1) + "\n")
        return 1 if self.failures and not options.smoke else 0
