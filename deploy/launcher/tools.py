"""Which yt-dlp runs, and with what: the program's own copy in its data
folder when it is there and loads, else the system's; the JavaScript runtime
it is given; the browser whose cookies it reads; all as the settings say."""

import os
import re
import shutil
import sys

from .common import LAUNCHER, TOOL_NAME

# The JavaScript runtimes a yt-dlp that has --js-runtimes is given, and
# the oldest version of each.
RUNTIMES = (("deno", (2, 3)), ("node", (22,)))


def data_folder():
    """The program's data folder (where its settings file lives)."""
    home = os.path.expanduser("~")
    if sys.platform == "darwin":
        return os.path.join(home, "Library", "Application Support", "Vidorra 2")
    base = os.environ.get("XDG_DATA_HOME", "")
    if not os.path.isabs(base):
        base = os.path.join(home, ".local", "share")
    return os.path.join(base, "Vidorra 2")


def tools_folder():
    """The folder of the program's own copies of yt-dlp and deno."""
    return os.path.join(data_folder(), "tools")


def ini_value(raw):
    """A value as the program's settings file writes it (quoted when it has
    to be, with backslash escapes and \\xNNNN for other characters)."""
    raw = raw.strip()
    if len(raw) >= 2 and raw[0] == raw[-1] == '"':
        raw = raw[1:-1]
    escapes = {"n": "\n", "t": "\t", "r": "\r", "\\": "\\", '"': '"', "'": "'"}

    def unescape(m):
        text = m.group(1)
        if text[0] == "x":
            return chr(int(text[1:], 16))
        return escapes.get(text, text)
    return re.sub(r"\\(x[0-9a-fA-F]{1,4}|.)", unescape, raw)


def read_ini(path):
    """The keys of the [General] group of a settings file."""
    values, general = {}, False
    try:
        with open(path, encoding="utf-8", errors="replace") as f:
            for line in f:
                line = line.strip()
                if line.startswith("["):
                    general = line == "[General]"
                elif general and "=" in line and not line.startswith(";"):
                    key, value = line.split("=", 1)
                    values[key.strip()] = ini_value(value)
    except OSError:
        pass
    return values


def settings():
    """The settings the launcher reads: the user's settings file, over the
    stock one beside the program.  A stock file that keeps the system's tool
    (a packager's choice) is obeyed whatever the user's says."""
    stock = {}
    for folder in (os.path.dirname(LAUNCHER), os.path.dirname(os.path.realpath(LAUNCHER))):
        stock = read_ini(os.path.join(folder, "sniffer.ini"))
        if stock:
            break
    values = dict(stock)
    values.update(read_ini(os.path.join(data_folder(), "sniffer.ini")))
    if stock.get("downloader_tool") == "system":
        values["downloader_tool"] = "system"
    return values


def system_only(values):
    return values.get("downloader_tool", "").strip().lower() == "system"


def private_tool():
    """The program's own copy of yt-dlp, or None."""
    path = os.path.join(tools_folder(), TOOL_NAME)
    return path if os.path.isfile(path) and os.access(path, os.X_OK) else None


def system_tool():
    """The system's yt-dlp: beside this file, then on PATH (and the usual
    install folders); None when there is none."""
    for folder in (os.path.dirname(LAUNCHER), os.path.dirname(os.path.realpath(LAUNCHER))):
        candidate = os.path.join(folder, TOOL_NAME)
        if os.path.isfile(candidate) and os.access(candidate, os.X_OK):
            return candidate
    search = os.environ.get("PATH", os.defpath).split(os.pathsep)
    for folder in search + ["/usr/local/bin", "/opt/homebrew/bin", "/opt/local/bin", "/usr/bin"]:
        candidate = os.path.join(folder, TOOL_NAME)
        if folder and os.path.isfile(candidate) and os.access(candidate, os.X_OK):
            return candidate
    return None


def candidates(values):
    """The tools to try, in order."""
    override = os.environ.get("VIDORRA_YTDLP")
    if override:
        return [override]
    found = [] if system_only(values) else [private_tool()]
    return [t for t in found + [system_tool()] if t]


def module_source(tool):
    """Where this interpreter finds the tool as a module: the file itself for
    a zipped release, "" for a script of this very interpreter that imports
    yt_dlp, None when the tool has to be started as a program."""
    try:
        with open(tool, "rb") as f:
            head = f.read(4096)
    except OSError:
        return None
    if head.startswith(b"#!") and b"\nPK\x03\x04" in head or head.startswith(b"PK\x03\x04"):
        return tool
    if not head.startswith(b"#!") or b"yt_dlp" not in head:
        return None
    interpreter = head[2:].split(b"\n", 1)[0].split()
    if not interpreter:
        return None
    same = os.path.realpath(os.fsdecode(interpreter[0])) == os.path.realpath(sys.executable)
    return "" if same else None


def module_text(source, name):
    """The text of the module yt_dlp/NAME at `source` (see module_source),
    read without loading it; "" when unknown."""
    try:
        if source:
            import zipfile
            with zipfile.ZipFile(source) as z:
                return z.read("yt_dlp/" + name).decode("utf-8", "replace")
        import importlib.util
        found = importlib.util.find_spec("yt_dlp")
        folder = found and found.submodule_search_locations and found.submodule_search_locations[0]
        with open(os.path.join(folder, name), encoding="utf-8", errors="replace") as f:
            return f.read()
    except Exception:  # noqa: BLE001 - unknown
        return ""


def knows_js_runtimes(tool, source, folder):
    """Whether the tool takes --js-runtimes: its options, or its help text
    for a tool that is not loaded as a module."""
    if source is not None:
        return "--js-runtimes" in module_text(source, "options.py")
    return remembered(folder, tool, lambda path: "yes" if "--js-runtimes" in help_text(path) else "no",
                      "js-runtimes") == "yes"


def help_text(path):
    import subprocess
    try:
        return subprocess.run([path, "--ignore-config", "--help"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, timeout=60).stdout.decode("utf-8", "replace")
    except (OSError, subprocess.SubprocessError):
        return ""


def version_tuple(text):
    """(2025, 11, 12) of "2025.11.12", (2, 5, 6) of "deno 2.5.6 (...)" or
    "v22.1.0"; () when there are no figures."""
    m = re.search(r"(\d+(?:\.\d+)*)", text or "")
    return tuple(int(n) for n in m.group(1).split(".")) if m else ()


def answers_version(command):
    """(the first line `command` prints for --version, "") when it answers,
    else (None, why not)."""
    import subprocess
    try:
        r = subprocess.run(command + ["--version"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                           stderr=subprocess.PIPE, timeout=120)
    except (OSError, subprocess.SubprocessError) as e:
        return None, str(e)
    lines = r.stdout.decode("utf-8", "replace").strip().splitlines()
    if r.returncode != 0 or not lines:
        said = r.stderr.decode("utf-8", "replace").strip().splitlines()
        return None, said[-1] if said else "exit code %d" % r.returncode
    return lines[0].strip(), ""


def program_version(path):
    """The first line a program prints for --version, or ""."""
    return answers_version([path])[0] or ""


def remembered(folder, path, ask, kind="version"):
    """ask(path), kept in `folder` (the launcher's per-user folder) for as
    long as the file at `path` is unchanged."""
    import json
    try:
        st = os.stat(path)
    except OSError:
        return ask(path)
    key = "%s:%s:%d:%d" % (kind, os.path.realpath(path), st.st_mtime_ns, st.st_size)
    store = os.path.join(folder, "versions.json") if folder else None
    known = {}
    if store:
        try:
            with open(store, encoding="utf-8") as f:
                known = json.load(f)
        except (OSError, ValueError):
            known = {}
    if isinstance(known, dict) and isinstance(known.get(key), str):
        return known[key]
    value = ask(path)
    if store:
        known = {key: value} if not isinstance(known, dict) or len(known) > 50 else dict(known, **{key: value})
        temp = "%s.%d.tmp" % (store, os.getpid())
        try:
            with open(os.open(temp, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600), "w") as f:
                json.dump(known, f)
            os.replace(temp, store)
        except OSError:
            pass
    return value


def suitable_runtime(folder=None):
    """(name, path) of a JavaScript runtime new enough for yt-dlp: deno or
    node on PATH, else the program's own deno; None without one."""
    found = [(name, shutil.which(name), least) for name, least in RUNTIMES]
    found.append(("deno", os.path.join(tools_folder(), "deno"), RUNTIMES[0][1]))
    for name, path, least in found:
        if path and os.path.isfile(path) and os.access(path, os.X_OK):
            if version_tuple(remembered(folder, path, program_version)) >= least:
                return name, os.path.abspath(path)
    return None


def extra_options(js_runtimes, values, folder):
    """The options the settings and this machine add to every run (of a tool
    that takes --js-runtimes, when `js_runtimes`)."""
    extra = []
    if js_runtimes:
        runtime = suitable_runtime(folder)
        if runtime:
            extra += ["--js-runtimes", "%s:%s" % runtime]
    browser = values.get("cookies_from_browser", "").strip()
    if browser and browser.lower() not in ("none", "no", "off"):
        extra += ["--cookies-from-browser", browser]
    return extra


def skip_file_probe():
    """The crypto library yt-dlp loads starts `file` on this interpreter's
    binary (platform.architecture) only to tell Windows from the rest; its
    answer is given here ahead, without the child process."""
    import importlib
    for package in ("Cryptodome", "Crypto"):
        try:
            raw_api = importlib.import_module(package + ".Util._raw_api")
        except Exception:  # noqa: BLE001 - not there: nothing to skip
            continue
        cache = getattr(raw_api, "cached_architecture", None)
        if isinstance(cache, list) and not cache:
            try:
                with open(sys.executable, "rb") as f:
                    linkage = "ELF" if f.read(4) == b"\x7fELF" else ""
            except OSError:
                continue
            cache[:] = ["%dbit" % (sys.maxsize.bit_length() + 1), linkage]


def unpacked(source):
    """A zipped release unpacked once into the user's cache folder, where
    this interpreter keeps the modules it compiles (it cannot inside a zip,
    so every run would compile them again): the folder to import from, or
    `source` itself when it cannot be unpacked."""
    import shutil
    import tempfile
    import time
    import zipfile
    from .common import stamp_of
    from .index import cache_folder
    folder = cache_folder() if source else None
    if folder is None:
        return source
    target = os.path.join(folder, "yt-dlp-" + stamp_of(source))
    if os.path.isdir(target):
        return target
    temp = tempfile.mkdtemp(prefix=".yt-dlp-", dir=folder)
    try:
        with zipfile.ZipFile(source) as z:
            z.extractall(temp, [n for n in z.namelist() if n.startswith("yt_dlp/")])
        os.rename(temp, target)
    except (OSError, zipfile.BadZipFile, ValueError):
        shutil.rmtree(temp, True)  # unpacked meanwhile by another run, or not a zip
        return target if os.path.isdir(target) else source
    for name in os.listdir(folder):  # earlier versions, once no helper can be using them
        path = os.path.join(folder, name)
        if name.startswith("yt-dlp-") and path != target and time.time() - os.stat(path).st_mtime > 86400:
            shutil.rmtree(path, True)
    return target


def load_module(source):
    """yt_dlp from `source` (see module_source), or None when it does not load."""
    if source:
        sys.path.insert(0, source)
        if os.path.isdir(source):
            sys.dont_write_bytecode = False  # the unpacked copy keeps its compiled modules
    skip_file_probe()
    try:
        import yt_dlp
        return yt_dlp
    except Exception:  # noqa: BLE001 - any failure means: start the tool instead
        if source:
            sys.path.remove(source)
        for name in [n for n in sys.modules if n == "yt_dlp" or n.startswith("yt_dlp.")]:
            del sys.modules[name]  # half loaded: the next copy starts afresh
        return None
