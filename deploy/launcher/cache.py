"""The per-user folder of the launcher, and the cache of the tool's
information about an address, shared by the runs of one launcher and tool."""

import os
import time

from .common import CACHE_SECONDS, locked, private_folder


def state_folder():
    """The folder of the cache and the helper's socket, made if need be;
    None when it cannot be this user's alone."""
    folder = os.environ.get("VIDORRA_RUN_DIR")
    if not folder:
        runtime = os.environ.get("XDG_RUNTIME_DIR", "")
        if os.path.isabs(runtime) and os.path.isdir(runtime):
            folder = os.path.join(runtime, "vidorra2")
        else:
            folder = os.path.join(os.environ.get("TMPDIR") or "/tmp", "vidorra2-%d" % os.getuid())
    return private_folder(os.path.abspath(folder))  # the helper leaves the working folder


class Cache:
    """The tool's information about one address, shared by the runs of this
    launcher and tool for CACHE_SECONDS."""

    def __init__(self, folder, stamp, url):
        import hashlib
        key = hashlib.sha256(url.encode("utf-8", "surrogateescape")).hexdigest()[:40]
        self.folder = folder
        self.base = os.path.join(folder, "%s-%s" % (stamp, key))
        self.path = self.base + ".json"

    def fresh(self):
        """The kept information, or None when there is none young enough."""
        import json
        try:
            with open(self.path, "rb") as f:
                age = time.time() - os.fstat(f.fileno()).st_mtime
                if not 0 <= age < CACHE_SECONDS:
                    return None
                info = json.loads(f.read().decode("utf-8"))
        except (OSError, ValueError):
            return None
        return info if isinstance(info, dict) else None

    def lock(self, wait=True):
        return locked(self.base + ".lock", wait)

    def keep(self, info):
        import json
        temp = "%s.%d.tmp" % (self.base, os.getpid())
        try:
            fd = os.open(temp, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600)
            with os.fdopen(fd, "wb") as f:
                f.write(json.dumps(info, ensure_ascii=False).encode("utf-8", "surrogatepass"))
            os.replace(temp, self.path)
        except (OSError, ValueError, TypeError):
            try:
                os.unlink(temp)
            except OSError:
                pass
        self.prune()

    def prune(self):
        """Removes information past its time, and locks nobody can hold any more."""
        now = time.time()
        try:
            names = os.listdir(self.folder)
        except OSError:
            return
        for name in names:
            limit = {".json": CACHE_SECONDS, ".tmp": 3600, ".lock": 3600}.get(os.path.splitext(name)[1])
            path = os.path.join(self.folder, name)
            try:
                if limit and now - os.lstat(path).st_mtime > limit:
                    os.unlink(path)
            except OSError:
                pass

