"""What a shell makes of a line when its user presses Tab."""

import os
import pathlib
import pty
import signal

from tests.harness.waiting import wait_for

TAB, SHOW = b"\t", b"\x14"  # Ctrl-T writes the line to a file
PROMPT = "ready:"
# What is typed before Tab, and the line that it makes.
TABS = {
    "glintmark-link ex": "glintmark-link explain",
    "glintmark-link --ver": "glintmark-link --version",
    "glintmark-link icon --mis": "glintmark-link icon --missing-only",
    "glintmark-link new --fr": "glintmark-link new --from",
    "glintmark-link explain --ht": "glintmark-link explain --html",
}
# By shell: how it starts without anyone's settings, and what has Ctrl-T write the line.
SHELLS = {
    "bash": (["bash", "--norc", "--noprofile", "-i"], "bind -x '\"\\C-t\": {show}'"),
    "zsh": (
        ["zsh", "-f", "-i"],
        "autoload -U compinit; compinit -u -D; "
        "show-line() {{ {show} }}; zle -N show-line; bindkey '^T' show-line",
    ),
}
LINES = {"bash": '"$READLINE_LINE"', "zsh": '"$BUFFER"'}


def completed(shell, typed, preparation, folder, wrap=list, inside=None):
    """The line after Tab at its end. `preparation`: a command that comes before. `folder` takes a
    file; `inside` is its path where the shell runs, which `wrap` leads into."""
    start, show = SHELLS[shell]
    line = pathlib.Path(folder) / f"{shell}.line"
    line.unlink(missing_ok=True)
    show_line = f"echo {LINES[shell]} >{pathlib.Path(inside or folder) / line.name}"
    # The quotes keep the prompt apart from the echo of this command.
    prompt = f"PS1={PROMPT[:2]}''{PROMPT[2:]}"
    commands = [preparation, show.format(show=show_line), prompt]
    command = wrap(start)
    pid, terminal = pty.fork()
    if pid == 0:
        os.execvpe(command[0], command, {**os.environ, "TERM": "dumb"})
    try:
        os.set_blocking(terminal, False)
        output = []
        os.write(terminal, "".join(f"{command}\n" for command in commands).encode())
        wait_for(lambda: PROMPT in read_more(terminal, output), f"the prompt of {shell}")
        os.write(terminal, typed.encode() + TAB + SHOW)
        wait_for(
            lambda: read_more(terminal, output) and line.exists() and line.stat().st_size,
            f"the line of {shell}",
        )
        return line.read_text().removesuffix("\n")
    finally:
        os.kill(pid, signal.SIGHUP)
        os.close(terminal)
        os.waitpid(pid, 0)


def read_more(terminal, output):
    """Everything that the shell has written. Without a reader it would be held up."""
    try:
        output.append(os.read(terminal, 65536))
    except OSError:  # nothing for now, or the shell has ended
        pass
    return b"".join(output).decode(errors="replace")
