"""What the launcher's tests share: its helpers found and stopped, waits with a limit, small scripts written."""
import glob, os, shutil, signal, subprocess, time

FIXTURES = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "fixtures")


def serve(media, cleanup, *extra):
    """The address of media_server.py serving `media`; `cleanup` (addCleanup) ends it."""
    proc = subprocess.Popen(["/usr/bin/python3", os.path.join(FIXTURES, "media_server.py"), media, "0", *extra],
                            stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    for step in (proc.stdout.close, proc.kill, lambda: proc.wait(10), proc.stdin.close):
        cleanup(step)  # run backwards: the server leaves when its stdin closes
    line = proc.stdout.readline().decode()
    assert line.startswith("PORT "), "no port from the media server: %r" % line
    return "http://127.0.0.1:%d" % int(line[5:])


def helpers(state):
    """Process ids of the helpers serving from `state`."""
    found = []
    for name in glob.glob(os.path.join(state, "helper-*.pid")):
        try:  # a leaving helper takes its file away
            with open(name) as f:
                pid = int(f.read())
            os.kill(pid, 0)
            found.append(pid)
        except (OSError, ValueError):
            pass
    return found


def stop_helpers(state):
    """Kills the helpers of `state` and their workers; the folder goes too."""
    for pid in helpers(state):
        workers = subprocess.run(["pgrep", "-P", str(pid)], capture_output=True).stdout.split()  # before they lose it
        os.killpg(pid, signal.SIGKILL)  # a helper leads its own group; workers have their own
        for child in workers:
            os.kill(int(child), signal.SIGKILL)
    shutil.rmtree(state, True)


def wait_for(condition, what, seconds=30):
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError("gave up waiting for " + what)
        time.sleep(0.05)


def write(path, text):
    with open(path, "w") as f:
        f.write(text)
    os.chmod(path, 0o755)
    return path
