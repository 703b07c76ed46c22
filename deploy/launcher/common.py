"""What every part of the launcher shares: the tool's name, the options of
every run, standard output in one piece, folders of this user's alone,
locks, and the stamp that tells one launcher and tool from another."""

import os
import stat
import sys

TOOL_NAME = "yt-dlp"

# Options given to every run of the tool: no user configuration, no colour
# codes, one video only, no warnings mixed into the output.
COMMON = ["--ignore-config", "--no-colors", "--no-warnings",
          "--no-playlist", "--playlist-items", "1"]

# Options the settings add to every run (a JavaScript runtime, the browser
# whose cookies the tool reads); set once by the launcher before any run.
EXTRA = []

# This file, named before the helper leaves the working folder.
LAUNCHER = os.path.abspath(sys.argv[0])
PARTS = os.path.dirname(os.path.abspath(__file__))

CACHE_SECONDS = 180
try:
    HELPER_IDLE_SECONDS = max(1, int(os.environ.get("VIDORRA_HELPER_IDLE") or 300))
except ValueError:
    HELPER_IDLE_SECONDS = 300


def common():
    # yt-dlp trusts certifi's list of authorities when it has one, which
    # ignores OpenSSL's SSL_CERT_FILE and SSL_CERT_DIR: a trust store named
    # there (a company's own authority) is what the user wants used.
    named = os.environ.get("SSL_CERT_FILE") or os.environ.get("SSL_CERT_DIR")
    return COMMON + (["--compat-options", "no-certifi"] if named else []) + EXTRA


def query_title():
    return common() + ["--dump-json"]


def query_formats():
    return common() + ["--compat-options", "list-formats", "--list-formats"]


def write_out(text):
    """Writes text to standard output in one piece (the program treats every
    chunk it reads as the whole answer) and flushes it."""
    out = sys.stdout.buffer
    out.write(text.encode("utf-8", "replace"))
    out.flush()


def private_folder(folder):
    """`folder`, made if need be; None when it cannot be this user's alone."""
    try:
        os.mkdir(folder, 0o700)
    except FileExistsError:
        pass
    except OSError:
        return None
    try:
        st = os.lstat(folder)
    except OSError:
        return None
    if not stat.S_ISDIR(st.st_mode) or st.st_uid != os.getuid() or st.st_mode & 0o077:
        return None
    return folder


def locked(path, wait=True):
    """An open file of `path` under an exclusive lock, or None when `wait` is
    false and somebody else holds it, or when the folder has gone.  The lock
    dies with the process."""
    import fcntl
    while True:
        try:
            fd = os.open(path, os.O_RDWR | os.O_CREAT, 0o600)
        except OSError:
            return None
        try:
            fcntl.flock(fd, fcntl.LOCK_EX | (0 if wait else fcntl.LOCK_NB))
        except OSError:
            os.close(fd)
            return None
        try:
            same = os.stat(path).st_ino == os.fstat(fd).st_ino
        except OSError:
            same = False
        if same:
            return fd
        os.close(fd)  # pruned while we waited: lock the new one


def stamp_of(tool, *texts):
    """Names this launcher (its parts too) and this tool (and `texts`) as
    they are now: the helper and the cache of one launcher and tool never
    serve another (or an updated) one."""
    import zlib
    parts = list(texts)
    paths = [os.path.realpath(LAUNCHER), os.path.realpath(tool)]
    try:
        paths += sorted(os.path.join(PARTS, n) for n in os.listdir(PARTS) if n.endswith(".py"))
    except OSError:
        pass
    for path in paths:
        try:
            st = os.stat(path)
            parts.append("%s:%d:%d" % (path, st.st_mtime_ns, st.st_size))
        except OSError:
            parts.append(path)
    text = "\n".join(parts).encode("utf-8", "surrogateescape")
    return "%08x%08x" % (zlib.crc32(text), zlib.adler32(text))
