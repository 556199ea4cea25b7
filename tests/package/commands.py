"""Running commands."""

import subprocess


def output_of(*command, **options):
    """The output of a command, standard error included. The command must succeed."""
    command = [str(word) for word in command]
    streams = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT}
    done = subprocess.run(command, text=True, check=False, **streams, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command}: status {done.returncode}\n{done.stdout}")
    return done.stdout
