"""The extractor index: which of the tool's extractors can be passed over for
an address or a page without loading them."""

import os
import sys

from .common import private_folder, stamp_of

# A run of an unknown address asks every one of the tool's ~1800 extractors
# whether the address is theirs (one regular expression each, compiled on
# first use) and, on a page no extractor claims, whether the page embeds a
# video of theirs (importing each extractor's module to find out).  That is
# most of a first run's time, spent again by every process.  The index keeps,
# for each extractor, the pieces of text every address it claims contains,
# and the same for each of its patterns of embedded videos; an extractor
# is passed over, without compiling or importing anything, when a piece is
# missing.  An extractor with no such piece, or that looks for embedded
# videos its own way, is always asked.  The helper writes the index once per
# tool version; it lives in the user's cache folder, so the first run of
# every later session finds it.

# Characters that match a plain ASCII letter in a case-insensitive pattern
# while their lower case is something else; the rest fold with str.lower().
CASE_FOLD = str.maketrans({"\u0130": "i", "\u0131": "i", "\u017f": "s", "\u212a": "k"})


def folded(text):
    return text.translate(CASE_FOLD).lower()


def required_texts(pattern):
    """What every match of the regular expression `pattern` contains: a list
    of clauses, each a list of pieces of text (lower-cased, see folded) of
    which a match contains one at least; none when nothing is sure."""
    try:
        from re import _parser as parser
    except ImportError:  # before Python 3.11
        import sre_parse as parser
    repeats = {getattr(parser, n, None) for n in ("MAX_REPEAT", "MIN_REPEAT", "POSSESSIVE_REPEAT")} - {None}

    def selective(clause):
        return len(clause), -min(map(len, clause)), clause

    def walk(items, clauses):
        run = []
        for op, arg in list(items) + [(None, None)]:
            if op is parser.LITERAL and arg < 128:
                run.append(chr(arg))
                continue
            if run:
                clauses.append(["".join(run).lower()])
                run = []
            if op is parser.SUBPATTERN:
                walk(arg[-1], clauses)
            elif op in repeats and arg[0] >= 1:
                walk(arg[2], clauses)
            elif op is parser.BRANCH:
                # One of the alternatives matches: the text promised by one
                # clause of each, taken together, is a clause.
                choice = set()
                for alternative in arg[1]:
                    found = []
                    walk(alternative, found)
                    if not found:
                        break
                    choice.update(min(found, key=selective))
                else:
                    clauses.append(sorted(choice))
            # anything else (classes, optional parts, lookarounds) promises no text
        return clauses

    try:
        clauses = walk(parser.parse(pattern), [])
    except Exception:  # noqa: BLE001 - a pattern this cannot read promises nothing
        return []
    unique = {tuple(c): c for c in clauses}
    return sorted(unique.values(), key=selective)


def contains(text, clauses):
    """Whether `text` (folded) holds a piece of every clause."""
    return all(any(piece in text for piece in clause) for clause in clauses)


def cache_folder():
    """This user's cache folder of the launcher, or None."""
    folder = os.environ.get("VIDORRA_CACHE_DIR")
    if not folder:
        base = os.environ.get("XDG_CACHE_HOME", "")
        if not os.path.isabs(base):
            home = os.path.expanduser("~")
            caches = ("Library", "Caches") if sys.platform == "darwin" else (".cache",)
            base = os.path.join(home, *caches)
        folder = os.path.join(base, "vidorra2")
        try:
            os.makedirs(base, exist_ok=True)
        except OSError:
            return None
    return private_folder(os.path.abspath(folder))


def lazy_extractors():
    """The tool's module of extractors that load on first use, or None."""
    try:
        import importlib
        if not importlib.import_module("yt_dlp.extractor.extractors")._LAZY_LOADER:
            return None
    except Exception:  # noqa: BLE001
        return None
    module = sys.modules.get("yt_dlp.extractor.lazy_extractors")
    return module if module is not None and hasattr(module, "LazyLoadExtractor") else None


def index_path(yt_dlp):
    """Where the index of this tool, this launcher and this interpreter is."""
    lazy = lazy_extractors()
    folder = cache_folder()
    if lazy is None or folder is None:
        return None
    version = str(getattr(getattr(yt_dlp, "version", None), "__version__", ""))
    stamp = stamp_of(getattr(lazy, "__file__", None) or "", sys.version, version)
    return os.path.join(folder, "extractors-%s.json" % stamp)


def build_index(yt_dlp):
    """{"addresses": {extractor: clauses}, "embeds": {extractor: [clauses per
    pattern]}}: what the extractor's addresses contain, and what each of its
    patterns of embedded videos finds (see required_texts)."""
    from yt_dlp.extractor.common import InfoExtractor
    lazy = lazy_extractors()
    methods = ("extract_from_webpage", "_extract_from_webpage", "_extract_embed_urls")

    def default(real, name):
        return getattr(getattr(real, name, None), "__func__", None) is getattr(InfoExtractor, name).__func__

    addresses, embeds = {}, {}
    for cls in getattr(lazy, "_ALL_CLASSES", []):
        name = cls.__name__
        pattern = cls._VALID_URL
        needs = required_texts(pattern) if isinstance(pattern, str) else []
        if needs:
            addresses[name] = needs
        try:
            real = cls.real_class
        except Exception:  # noqa: BLE001 - left to the tool
            continue
        patterns = getattr(real, "_EMBED_REGEX", None)
        if not all(default(real, m) for m in methods) or not isinstance(patterns, (list, tuple)):
            continue  # looks for embedded videos its own way
        needs = [required_texts(p) if isinstance(p, str) else [] for p in patterns]
        if all(needs):
            embeds[name] = needs
    return {"addresses": addresses, "embeds": embeds}


def keep_index(yt_dlp):
    """Writes the index when it is not there yet (in the helper)."""
    import json
    path = index_path(yt_dlp)
    if path is None or os.path.exists(path):
        return
    temp = "%s.%d.tmp" % (path, os.getpid())
    try:
        data = json.dumps(build_index(yt_dlp)).encode("ascii")
        fd = os.open(temp, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600)
        with os.fdopen(fd, "wb") as f:
            f.write(data)
        os.replace(temp, path)
    except Exception:  # noqa: BLE001 - without an index every extractor is asked
        try:
            os.unlink(temp)
        except OSError:
            pass
        return
    folder, own = os.path.split(path)
    for name in os.listdir(folder):  # the indexes of earlier versions
        if name.startswith("extractors-") and name != own:
            try:
                os.unlink(os.path.join(folder, name))
            except OSError:
                pass


def read_index(path):
    import json
    try:
        with open(path, "rb") as f:
            index = json.loads(f.read().decode("ascii"))
        addresses, embeds = index["addresses"], index["embeds"]
    except (OSError, ValueError, TypeError, KeyError):
        return None

    def nonempty(value, each):
        return isinstance(value, list) and value and all(each(v) for v in value)

    def clauses(value):
        return nonempty(value, lambda clause: nonempty(clause, lambda t: isinstance(t, str) and t))

    if not (isinstance(addresses, dict) and isinstance(embeds, dict)
            and all(clauses(n) for n in addresses.values())
            and all(isinstance(n, list) and all(clauses(p) for p in n) for n in embeds.values())):
        return None
    return addresses, embeds


def use_index(yt_dlp):
    """Lets the extractors the index rules out pass over an address or a page
    at once.  Does nothing without an index."""
    lazy = lazy_extractors()
    path = index_path(yt_dlp)
    index = read_index(path) if path else None
    if index is None:
        return False
    addresses, embeds = index
    base = lazy.LazyLoadExtractor
    if base.__dict__.get("_launcher_index"):  # (getattr would load an extractor)
        return True
    base._launcher_index = True
    match = base._match_valid_url.__func__
    last_page = [None, ""]

    def page_text(page):
        if last_page[0] is not page:
            last_page[:] = [page, folded(page)]
        return last_page[1]

    def match_valid_url(cls, url):
        needs = addresses.get(cls.__name__)
        if needs and isinstance(url, str) and not contains(folded(url), needs):
            return None
        return match(cls, url)

    def extract_from_webpage(cls, ydl, url, webpage):
        needs = embeds.get(cls.__name__)
        if needs is not None and isinstance(webpage, str):
            text = page_text(webpage)
            if not any(contains(text, pattern) for pattern in needs):
                return iter(())
        return cls.real_class.extract_from_webpage(ydl, url, webpage)

    base._match_valid_url = classmethod(match_valid_url)
    base.extract_from_webpage = classmethod(extract_from_webpage)
    return True

