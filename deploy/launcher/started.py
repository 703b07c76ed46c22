"""The tool started as a child process (a program this interpreter cannot
load as a module)."""

import os
import sys

from .answers import download_options, format_answer, title_answer
from .common import query_formats, query_title, write_out

def child_env():
    env = dict(os.environ)
    env["PYTHONUNBUFFERED"] = "1"      # progress lines leave at once
    env["PYTHONIOENCODING"] = "utf-8"  # titles are read back as UTF-8
    return env


def end_with_launcher():
    """Runs in the tool's process before it starts: on Linux the tool gets
    SIGTERM when the launcher dies, so a query the program stops (it kills
    the launcher) leaves nothing running.  Elsewhere the tool ends at its
    next write to the closed pipe."""
    if not sys.platform.startswith("linux"):
        return
    try:
        import ctypes
        import signal
        PR_SET_PDEATHSIG = 1
        ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGTERM)
    except (OSError, AttributeError):
        pass


def capture(tool, args):
    """Runs the tool and returns (exit code, stdout text, stderr text).
    SIGTERM, SIGINT and SIGHUP are passed on to the tool."""
    import signal
    import subprocess
    try:
        proc = subprocess.Popen([tool] + args, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                env=child_env(), preexec_fn=end_with_launcher)
    except OSError as e:
        sys.stderr.write("run: cannot start %s: %s\n" % (tool, e))
        sys.exit(127)

    def forward(signum, _frame):
        try:
            proc.send_signal(signum)
        except OSError:
            pass

    for s in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
        signal.signal(s, forward)
    out, err = proc.communicate()
    return (proc.returncode, out.decode("utf-8", "replace"),
            err.decode("utf-8", "replace"))


def pass_stderr(err):
    if err:
        sys.stderr.write(err)
        sys.stderr.flush()


class Started:
    """The tool started as a child process for every run."""

    def __init__(self, tool):
        self.path = tool

    def get_title(self, url, want_title, want_duration):
        import json
        code, out, err = capture(self.path, query_title() + ["--", url])
        pass_stderr(err)
        if code != 0:
            return code or 1
        for line in out.splitlines():
            line = line.strip()
            if line.startswith("{"):
                try:
                    info = json.loads(line)
                except ValueError:
                    continue
                if isinstance(info, dict):
                    write_out(title_answer(info, want_title, want_duration))
                    return 0
        sys.stderr.write("run: no video information in the tool's output\n")
        return 1

    def list_formats(self, url):
        code, out, err = capture(self.path, query_formats() + ["--", url])
        pass_stderr(err)
        if code != 0:
            return code or 1
        write_out(format_answer(out))
        return 0

    def download(self, url, path, fmt):
        try:
            devnull = os.open(os.devnull, os.O_RDONLY)
            os.dup2(devnull, 0)
            os.close(devnull)
        except OSError:
            pass
        sys.stdout.flush()
        try:
            # Replace this process, so that stopping the launcher stops the
            # download itself.
            os.execve(self.path, [self.path] + download_options(url, path, fmt), child_env())
        except OSError as e:
            sys.stderr.write("run: cannot start %s: %s\n" % (self.path, e))
            return 127




def version(tool):
    code, out, err = capture(tool, ["--ignore-config", "--version"])
    if out:
        write_out(out)
    pass_stderr(err)
    return code

