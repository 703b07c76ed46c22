"""The helper: a process that keeps the tool loaded and serves later runs
over a socket of this user's only."""

import gc
import os
import stat
import sys
import time

from .common import HELPER_IDLE_SECONDS, locked
from .index import keep_index, use_index

# A worker's first answer to a run: the run is the worker's from then on, and
# the launcher never runs it itself (a download would be fetched twice).
TAKEN = b"T"
# A request not all there by then is dropped: it holds no worker for long.
REQUEST_SECONDS = 5
REQUEST_LIMIT = 1 << 24


def socket_path(folder, stamp):
    return os.path.join(folder, "helper-%s.sock" % stamp)


def peer_uid(conn):
    """The user at the other end of a local socket, or None when unknown."""
    import socket
    import struct
    try:
        if hasattr(socket, "SO_PEERCRED"):  # Linux
            creds = conn.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, struct.calcsize("3i"))
            return struct.unpack("3i", creds)[1]
        if sys.platform == "darwin":  # LOCAL_PEERCRED: struct xucred
            creds = conn.getsockopt(0, 0x001, struct.calcsize("IIh16I"))
            return struct.unpack_from("II", creds)[1]
    except OSError:
        pass
    return None


def receive_exactly(conn, size):
    data = b""
    while len(data) < size:
        part = conn.recv(size - len(data))
        if not part:
            break
        data += part
    return data


def ask_helper(folder, stamp, argv):
    """Hands this run to the helper; its exit code, or None when there is no
    helper of this user to hand it to, or it did not take the run.  A helper
    that goes away after taking the run fails it."""
    import json
    import socket
    import struct
    path = socket_path(folder, stamp)
    try:
        st = os.lstat(path)
    except OSError:
        return None
    if not stat.S_ISSOCK(st.st_mode) or st.st_uid != os.getuid():
        return None
    conn = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    try:
        conn.connect(path)
        if peer_uid(conn) not in (os.getuid(), None):
            return None
        fds = [fd for fd in (0, 1, 2) if fd_open(fd)]
        request = json.dumps({"argv": argv, "cwd": os.getcwd(), "env": dict(os.environ),
                              "fds": fds}).encode("utf-8", "surrogateescape")
        conn.sendmsg([struct.pack("!I", len(request)) + request],
                     [(socket.SOL_SOCKET, socket.SCM_RIGHTS, struct.pack("%di" % len(fds), *fds))])
        if receive_exactly(conn, 1) != TAKEN:
            conn.close()
            return None
    except (OSError, ValueError):
        conn.close()
        return None
    try:
        reply, cause = receive_exactly(conn, 4), "its connection closed"
    except OSError as e:
        reply, cause = b"", e.strerror or str(e)
    finally:
        conn.close()
    if len(reply) == 4:
        return struct.unpack("!i", reply)[0]
    sys.stderr.write("run: the launcher's helper stopped during this run (%s); the run is not repeated\n" % cause)
    return 1


def fd_open(fd):
    try:
        os.fstat(fd)
        return True
    except OSError:
        return False


def detach():
    """Leaves the program's session and lets go of everything inherited from
    it: its pipes must see their end when the launcher ends."""
    import signal
    os.setsid()
    os.chdir("/")
    for fd in [int(n) for n in os.listdir("/dev/fd") if n.isdigit()]:
        # Files of this interpreter are not inheritable; what is came from outside.
        if fd > 2 and fd_open(fd) and os.get_inheritable(fd):
            os.close(fd)
    null = os.open(os.devnull, os.O_RDWR)
    for fd in (0, 1, 2):
        os.dup2(null, fd)
    os.close(null)
    for s in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
        signal.signal(s, signal.SIG_DFL)
    # A run whose reader has gone fails with EPIPE and still sends its code:
    # a worker killed by SIGPIPE would leave the run without one.
    signal.signal(signal.SIGPIPE, signal.SIG_IGN)


def warm_up(loaded, interrupted=lambda: False):
    """Goes once through what a run of an unknown address goes through:
    every extractor's address pattern and its search for embedded videos,
    on an empty page, and the versions of ffmpeg and ffprobe.  In the helper this loads the whole tool; in a spare
    worker it makes the memory it shares with the helper its own, ahead of
    the request (the first write to a shared page copies it, and a run
    writes to thousands of them).  Stops early when `interrupted()`."""
    ydl = loaded.warm_ydl
    try:
        # ffmpeg's and ffprobe's versions, asked once per process (by
        # starting them) when a run first chooses formats or saves a file.
        pp = loaded.yt_dlp.postprocessor.FFmpegPostProcessor(ydl)
        pp.available, pp.probe_available  # noqa: B018 - asked for the side effect
    except Exception:  # noqa: BLE001
        pass
    try:
        for i, ie in enumerate(list(ydl._ies.values())):  # noqa: SLF001 - only for speed
            if i % 50 == 0 and interrupted():
                return
            try:
                ie.suitable("http://warm-up.invalid/")
                for _ in ie.extract_from_webpage(ydl, "http://warm-up.invalid/", "<html></html>"):
                    pass
            except Exception:  # noqa: BLE001
                pass
    except Exception:  # noqa: BLE001
        pass


def stay_as_helper(loaded):
    """Called at the end of a run that loaded the tool: a child of this
    process serves later runs, unless a helper is there already.  Returns in
    the launcher at once."""
    folder, stamp = loaded.folder, loaded.stamp
    if folder is None:
        return
    lock = locked(os.path.join(folder, "helper-%s.lock" % stamp), wait=False)
    if lock is None:
        return  # a helper is there (or the folder has gone)
    sys.stdout.flush()
    sys.stderr.flush()
    try:
        child = os.fork()
    except OSError:
        child = -1
    if child != 0:
        os.close(lock)  # the child holds it now
        return
    try:
        detach()
        serve(loaded)
    finally:
        os._exit(0)


SPARES = 2  # the program asks two questions at once


def serve(loaded):
    """The helper's loop: keeps SPARES workers waiting on the socket, each
    forked from this process with the tool loaded, and leaves after
    HELPER_IDLE_SECONDS without a run."""
    import select
    import socket
    import struct
    folder, stamp = loaded.folder, loaded.stamp
    try:
        loaded.warm_ydl = loaded.yt_dlp.YoutubeDL({"quiet": True, "no_warnings": True})
        warm_up(loaded)
        loaded.make_ahead()
    except Exception:  # noqa: BLE001 - workers make their own then
        pass
    try:
        keep_index(loaded.yt_dlp)
        use_index(loaded.yt_dlp)
    except Exception:  # noqa: BLE001 - without an index every extractor is asked
        pass
    gc.collect()
    gc.freeze()  # collections in the workers then leave the shared memory alone

    path = socket_path(folder, stamp)
    try:
        os.unlink(path)  # left by a helper that was killed
    except OSError:
        pass
    listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    old_mask = os.umask(0o077)
    try:
        listener.bind(path)
    finally:
        os.umask(old_mask)
    listener.listen(16)
    inode = os.lstat(path).st_ino
    pid_file = os.path.join(folder, "helper-%s.pid" % stamp)
    with open(pid_file + ".tmp", "w") as f:
        f.write("%d\n" % os.getpid())
    os.replace(pid_file + ".tmp", pid_file)

    # Workers tell on `taken` when they accept a connection (their pid) and
    # when they take its run (minus their pid): only runs hold off the idle
    # end, not connections still reading their request.  Spares end when
    # `alive` closes.
    taken_r, taken_w = os.pipe()
    alive_r, alive_w = os.pipe()
    spares, reading, busy = set(), set(), set()
    last = time.monotonic()
    while True:
        while len(spares) < SPARES:
            pid = os.fork()
            if pid == 0:
                os.close(taken_r)
                os.close(alive_w)
                spare(loaded, listener, taken_w, alive_r)
            spares.add(pid)
        now = time.monotonic()
        if busy:
            last = now
        elif now - last >= HELPER_IDLE_SECONDS:
            break
        if select.select([taken_r], [], [], min(1.0, HELPER_IDLE_SECONDS - (now - last)))[0]:
            for (pid,) in struct.iter_unpack("i", os.read(taken_r, 4 * 64)):
                if pid > 0:
                    spares.discard(pid)
                    reading.add(pid)
                else:
                    reading.discard(-pid)
                    busy.add(-pid)
                    last = time.monotonic()
        for pid in list(spares | reading | busy):
            try:
                ended = os.waitpid(pid, os.WNOHANG)[0]
            except ChildProcessError:
                ended = True
            if ended:
                for group in (spares, reading, busy):
                    group.discard(pid)
    try:
        if os.lstat(path).st_ino == inode:
            os.unlink(path)
            os.unlink(pid_file)
    except OSError:
        pass
    os.close(alive_w)  # the spares leave; busy workers finish their runs


def spare(loaded, listener, taken, alive):
    """A worker waiting for a run.  Never returns."""
    import select
    import struct
    try:
        os.setpgid(0, 0)
        # A run waiting on the socket goes first.
        warm_up(loaded, lambda: bool(select.select([listener, alive], [], [], 0)[0]))
        listener.setblocking(False)
        while True:
            ready = select.select([listener, alive], [], [])[0]
            if alive in ready:
                os._exit(0)  # the helper has gone
            try:
                conn, _ = listener.accept()
                break
            except BlockingIOError:
                continue  # the other spare took it
        os.write(taken, struct.pack("i", os.getpid()))
        listener.close()
        os.close(alive)
    except Exception:  # noqa: BLE001
        os._exit(0)
    work_for(loaded, conn, taken)


def read_request(conn):
    """The request of a run and the files handed over with it, read within
    REQUEST_SECONDS; raises OSError or ValueError when it is not all there."""
    import json
    import socket
    import struct
    deadline = time.monotonic() + REQUEST_SECONDS

    def wait():
        left = deadline - time.monotonic()
        if left <= 0:
            raise socket.timeout("request not complete in time")
        conn.settimeout(left)
    wait()
    # The standard files come with the first bytes: read those with recvmsg.
    data, ancillary, _flags, _addr = conn.recvmsg(65536, socket.CMSG_SPACE(3 * struct.calcsize("i")))
    fds = []
    for level, kind, payload in ancillary:
        if level == socket.SOL_SOCKET and kind == socket.SCM_RIGHTS:
            fds += struct.unpack("%di" % (len(payload) // 4), payload[:len(payload) // 4 * 4])
    size = struct.unpack("!I", data[:4])[0] if len(data) >= 4 else 0
    if size > REQUEST_LIMIT:
        raise ValueError("request too long")
    data = data[4:]
    while len(data) < size:
        wait()
        more = conn.recv(size - len(data))
        if not more:
            raise ValueError("request cut short")
        data += more
    conn.settimeout(None)
    return json.loads(data.decode("utf-8", "surrogateescape")), fds


def work_for(loaded, conn, taken):
    """In a worker of the helper: reads the request of one run, tells the
    launcher (and on `taken` the helper) that it takes it, answers it on the
    standard files it handed over, and sends back its exit code.  Never
    returns."""
    import signal
    import struct
    import threading
    try:
        if peer_uid(conn) not in (os.getuid(), None):
            os._exit(0)
        request, fds = read_request(conn)
        given = dict(zip(request["fds"], fds))
        null = os.open(os.devnull, os.O_RDWR)
        for fd in (0, 1, 2):
            os.dup2(given.get(fd, null), fd)
        for fd in fds + [null]:
            os.close(fd)
        conn.sendall(TAKEN)
    except Exception:  # noqa: BLE001 - not taken: the launcher runs it itself
        os._exit(0)
    try:
        os.write(taken, struct.pack("i", -os.getpid()))
    except OSError:
        pass  # the helper has gone; the run goes on
    os.close(taken)
    code = 1
    try:
        os.chdir(request["cwd"])
        os.environ.clear()
        os.environ.update(request["env"])
        signal.signal(signal.SIGCHLD, signal.SIG_DFL)

        def stop_with_launcher():
            # The launcher only waits for the code: its end is the program's stop.
            try:
                while conn.recv(1):
                    pass
            except OSError:
                pass
            os.killpg(0, signal.SIGKILL)
        threading.Thread(target=stop_with_launcher, daemon=True).start()
        from .command import run_loaded
        code = run_loaded(loaded, request["argv"])
    except SystemExit as e:
        code = e.code if isinstance(e.code, int) else 1
    except Exception as e:  # noqa: BLE001 - this run's failure, told as such
        try:
            sys.stderr.write("run: %s\n" % e)
        except (OSError, ValueError):
            pass
    for out in (sys.stdout, sys.stderr):
        try:
            out.flush()
        except (OSError, ValueError):
            pass  # the reader has gone: the code still goes back
    try:
        conn.sendall(struct.pack("!i", code or 0))
    except (OSError, ValueError):
        pass
    os._exit(0)

