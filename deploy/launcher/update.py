"""run --update: the program's own copy of yt-dlp (and of deno, where no
JavaScript runtime on PATH is new enough) brought to the latest release.

yt-dlp's digests (SHA2-256SUMS) must carry a good signature of yt-dlp's
signing key, shipped beside this file and checked by gpgv; the download
must match its digest; the new copy must answer --version.  Only then is
it renamed over the working one, which is kept as "yt-dlp.previous" and
comes back when the new one does not run in its place.  A failure leaves the
working copy as it was.  Standard output has one line the program reads the
version from ("Updated yt-dlp to version X", "yt-dlp is up to date (X)",
"yt-dlp X stays in use"); progress and deno's news go to standard error,
and a failure ends with "run: update failed: REASON" there and exit code 1.
"""

import hashlib
import json
import os
import platform
import subprocess
import sys
import tempfile
import time

from . import tools
from .common import TOOL_NAME, locked, private_folder, write_out

API = "https://api.github.com/repos/"
RELEASES = {"stable": "yt-dlp/yt-dlp", "nightly": "yt-dlp/yt-dlp-nightly-builds"}
DENO_RELEASES = "denoland/deno"
KEY = os.path.join(os.path.dirname(os.path.abspath(__file__)), "yt-dlp-signing-key.asc")
PATIENCE = 30  # seconds without a byte before a transfer is given up
LONGEST = 900  # seconds for one file at most


class Failed(Exception):
    pass


def api():
    # The launcher's tests serve releases on 127.0.0.1.
    return os.environ.get("VIDORRA_RELEASE_API") or API


def patience():
    try:
        return float(os.environ.get("VIDORRA_UPDATE_PATIENCE", PATIENCE))
    except ValueError:
        return PATIENCE


def opened(url):
    import urllib.request
    if not (url.startswith("https://") or url.startswith(api())):
        raise Failed("refused an address that is not https: %s" % url)
    request = urllib.request.Request(url, headers={"User-Agent": "Vidorra 2 launcher"})
    try:
        response = urllib.request.urlopen(request, timeout=patience())
    except Exception as e:  # noqa: BLE001 - every network failure is a reason
        raise Failed("cannot reach %s: %s" % (url.split("/")[2] if "//" in url else url, reason_of(e)))
    final = response.geturl()
    if not (final.startswith("https://") or final.startswith(api())):
        response.close()
        raise Failed("refused a redirection away from https: %s" % final)
    return response


def reason_of(e):
    reason = getattr(e, "reason", None)
    text = str(reason if reason is not None else e) or type(e).__name__
    code = getattr(e, "code", None)
    return "HTTP %s %s" % (code, text) if code else text


def fetch(url, out=None, name=None):
    """The bytes at `url`, or, with `out` (an open file), their SHA-256
    digest after writing them there; progress on standard error for `name`."""
    digest, kept, done = hashlib.sha256(), [], 0
    started = time.monotonic()
    with opened(url) as response:
        total = int(response.headers.get("Content-Length") or 0)
        shown = -1
        while True:
            if time.monotonic() - started > LONGEST:
                raise Failed("the transfer of %s took too long" % (name or url))
            try:
                block = response.read1(65536)  # what has come, not a full block
            except Exception as e:  # noqa: BLE001 - a stalled or broken transfer
                raise Failed("the transfer of %s stopped: %s" % (name or url, reason_of(e)))
            if not block:
                break
            done += len(block)
            if out is None:
                kept.append(block)
                continue
            digest.update(block)
            try:
                out.write(block)
            except OSError as e:
                raise Failed("cannot write %s: %s" % (name, e.strerror or e))
            if total and name and done * 100 // total != shown:
                shown = done * 100 // total
                sys.stderr.write("[download] %5.1f%% of %s\n" % (shown, name))
                sys.stderr.flush()
    if total and done != total:
        raise Failed("the transfer of %s ended early" % (name or url))
    return digest.hexdigest() if out is not None else b"".join(kept)


def latest(repository):
    """(tag, {asset name: address}) of a repository's latest release."""
    try:
        release = json.loads(fetch(api() + repository + "/releases/latest").decode("utf-8"))
        assets = {a["name"]: a["browser_download_url"] for a in release.get("assets", [])}
        return str(release["tag_name"]), assets
    except (ValueError, KeyError, TypeError, AttributeError):
        raise Failed("the release server's answer about %s cannot be read" % repository)


def keyring(folder):
    """yt-dlp's signing key, as a keyring file gpgv reads, in `folder`."""
    import base64
    key = os.environ.get("VIDORRA_SIGNING_KEY") or KEY
    try:
        with open(key, encoding="ascii") as f:
            lines = f.read().strip().splitlines()
        body = lines[lines.index("") + 1:-1]
        data = base64.b64decode("".join(line for line in body if not line.startswith("=")))
    except (OSError, ValueError, UnicodeError):
        raise Failed("the signing key %s cannot be read" % key)
    fd, path = tempfile.mkstemp(prefix=".key-", suffix=".gpg", dir=folder)
    with os.fdopen(fd, "wb") as f:
        f.write(data)
    return path


def verified_sums(folder, assets):
    """The digests of a yt-dlp release, {file name: sha256}, once their
    signature is found good."""
    for name in ("SHA2-256SUMS", "SHA2-256SUMS.sig", TOOL_NAME):
        if name not in assets:
            raise Failed("the release has no %s" % name)
    sums = fetch(assets["SHA2-256SUMS"])
    signature = fetch(assets["SHA2-256SUMS.sig"])
    ring = keyring(folder)
    paths = [ring]
    try:
        for data in (signature, sums):
            fd, path = tempfile.mkstemp(prefix=".sums-", dir=folder)
            paths.append(path)
            with os.fdopen(fd, "wb") as f:
                f.write(data)
        try:
            check = subprocess.run(["gpgv", "--keyring", ring, paths[1], paths[2]], stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60)
        except OSError:
            raise Failed("gpgv is missing: install GnuPG to check the signature")
        except subprocess.SubprocessError:
            raise Failed("gpgv did not answer")
        if check.returncode != 0:
            said = check.stdout.decode("utf-8", "replace").strip().splitlines()
            raise Failed("the signature of the release's digests is not good (%s)"
                         % (said[-1] if said else "gpgv %d" % check.returncode))
    finally:
        for path in paths:
            os.unlink(path)
    return parse_sums(sums)


def parse_sums(data):
    digests = {}
    for line in data.decode("utf-8", "replace").splitlines():
        parts = line.split()
        if len(parts) >= 2 and len(parts[0]) == 64:
            digests[parts[-1].lstrip("*")] = parts[0].lower()
    return digests


def install(folder, name, url, digest, unpack=None, run=None):
    """Downloads `url` into a new file of `folder`, checks it against
    `digest` (and, with `unpack`, takes the program out of it), checks that
    it runs, and renames it over `name`; the copy it replaces stays as
    NAME.previous and comes back when the new one does not run in place.
    Returns the version the new copy prints."""
    run = run or (lambda path: [path])
    target = os.path.join(folder, name)
    fd, temp = tempfile.mkstemp(prefix=".%s-" % name, dir=folder)
    made = [temp]
    try:
        with os.fdopen(fd, "wb") as out:
            got = fetch(url, out, name)
        if got != digest:
            raise Failed("the download of %s does not match its published digest" % name)
        if unpack:
            made.append(unpack(temp))
            temp = made[-1]
        os.chmod(temp, 0o700)
        version, why = tools.answers_version(run(temp))
        if version is None:
            raise Failed("the new %s does not run (%s)" % (name, why))
        previous = target + ".previous"
        if os.path.exists(target):
            if os.path.exists(previous):
                os.unlink(previous)
            try:
                os.link(target, previous)
            except OSError:  # a file system without hard links
                import shutil
                shutil.copy2(target, previous)
        os.replace(temp, target)
        now, why = tools.answers_version(run(target))
        if now is None:
            if os.path.exists(previous):
                os.replace(previous, target)
            raise Failed("the new %s does not run in its place (%s); the previous copy is back" % (name, why))
        return now
    except OSError as e:
        raise Failed("cannot write %s in %s: %s" % (name, folder, e.strerror or e))
    finally:
        for path in made:
            if os.path.exists(path):
                os.unlink(path)


def unzip_deno(archive):
    import zipfile
    fd, path = tempfile.mkstemp(prefix=".deno-", dir=os.path.dirname(archive))
    try:
        with zipfile.ZipFile(archive) as z, os.fdopen(fd, "wb") as out:
            out.write(z.read("deno"))
    except (zipfile.BadZipFile, KeyError):
        raise Failed("deno's archive holds no program")
    return path


def deno_target():
    machine = {"amd64": "x86_64", "arm64": "aarch64"}.get(platform.machine().lower(), platform.machine().lower())
    system = "apple-darwin" if sys.platform == "darwin" else "unknown-linux-gnu"
    return "deno-%s-%s.zip" % (machine, system)


def update_deno(folder):
    """deno in `folder`, when no JavaScript runtime on PATH is new enough."""
    found = tools.suitable_runtime()
    if found and os.path.dirname(os.path.realpath(found[1])) != os.path.realpath(folder):
        return
    tag, assets = latest(DENO_RELEASES)
    have = tools.program_version(os.path.join(folder, "deno"))
    if have and tools.version_tuple(have) == tools.version_tuple(tag):
        return
    archive = deno_target()
    if archive not in assets or archive + ".sha256sum" not in assets:
        raise Failed("deno's release has no %s for this machine" % archive)
    sums = parse_sums(fetch(assets[archive + ".sha256sum"]).replace(b"\r", b""))
    digest = sums.get(archive) or next(iter(sums.values()), "")
    version = install(folder, "deno", assets[archive], digest, unpack=unzip_deno)
    sys.stderr.write("Updated deno to version %s\n" % ".".join(map(str, tools.version_tuple(version)[:3])))


def update_private(values):
    os.makedirs(tools.data_folder(), mode=0o700, exist_ok=True)
    folder = private_folder(tools.tools_folder())
    if folder is None:
        raise Failed("the folder %s cannot be made this user's alone" % tools.tools_folder())
    lock = locked(os.path.join(folder, ".update.lock"))
    if lock is None:
        raise Failed("the folder %s has gone" % folder)
    try:
        channel = "nightly" if values.get("downloader_channel", "").strip().lower() == "nightly" else "stable"
        tag, assets = latest(RELEASES[channel])
        target = os.path.join(folder, TOOL_NAME)
        have, _ = tools.answers_version([sys.executable, target]) if os.path.exists(target) else (None, "")
        if have == tag:
            news = "%s is up to date (%s)\n" % (TOOL_NAME, tag)
        else:
            sums = verified_sums(folder, assets)
            if TOOL_NAME not in sums:
                raise Failed("the release's digests do not name %s" % TOOL_NAME)
            version = install(folder, TOOL_NAME, assets[TOOL_NAME], sums[TOOL_NAME],
                              run=lambda path: [sys.executable, path])
            news = "Updated %s to version %s\n" % (TOOL_NAME, version)
        try:
            update_deno(folder)
        except Failed as e:
            write_out(news)
            raise Failed("yt-dlp is current, but deno (for YouTube) could not be installed: %s" % e)
        write_out(news)
    finally:
        os.close(lock)


def update(values):
    """run --update; the exit code."""
    from .started import capture, pass_stderr
    if tools.system_only(values):
        return update_system(values, capture, pass_stderr)
    try:
        update_private(values)
        return 0
    except Failed as e:
        tool = next(iter(tools.candidates(values)), None)
        version = tools.program_version(tool) if tool else ""
        if version:
            write_out("%s %s stays in use\n" % (TOOL_NAME, version))
        sys.stderr.write("run: update failed: %s\n" % e)
        return 1


def package_owner(tool):
    """Name of the system package that installed the tool, or None."""
    import shutil
    real = os.path.realpath(tool)
    if shutil.which("dpkg-query"):
        try:
            r = subprocess.run(["dpkg-query", "-S", real], stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, timeout=30)
            if r.returncode == 0:
                first = r.stdout.decode("utf-8", "replace").splitlines()[0]
                return "dpkg package " + first.split(":")[0].strip()
        except (OSError, subprocess.SubprocessError, IndexError):
            pass
    if "/Cellar/" in real or real.startswith("/opt/homebrew/"):
        return "Homebrew"
    if real.startswith("/opt/local/"):
        return "MacPorts"
    return None


def update_system(values, capture, pass_stderr):
    """The system's tool only (a setting): the package manager keeps it."""
    tool = next(iter(tools.candidates(values)), None)
    if tool is None:
        sys.stderr.write("run: update failed: %s is not installed\n" % TOOL_NAME)
        return 1
    if package_owner(tool) is None:
        code, out, err = capture(tool, ["--ignore-config", "--no-colors", "--update"])
        write_out(out)
        pass_stderr(err)
        if code != 0:
            sys.stderr.write("run: update failed: %s's own update ended with code %d\n" % (TOOL_NAME, code))
        return code
    # The program keeps the digits and dots of this text as the version: no
    # other figures, and no full stop after it.
    write_out("%s %s is the system's copy, kept by the setting downloader_tool=system: "
              "update it with the system's package manager\n" % (TOOL_NAME, tools.program_version(tool)))
    return 0
