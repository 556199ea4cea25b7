"""The command line of the benchmarks."""

from tests.harness.options import absolute_path, parse_options


def parse_bench_options(description, **more):
    """The options of every benchmark, and `more` as in `parse_options`."""
    return parse_options(
        description,
        program="build/bench/glintmark",
        json={"type": absolute_path, "help": "also write the figures to this file"},
        smoke={"action": "store_true", "help": "a short run; limits do not count"},
        **more,
    )
