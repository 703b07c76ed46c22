#!/usr/bin/python3
"""The launcher's extractor index against the real yt-dlp: an extractor it passes over is never one that would
have claimed the address or found a video in the page.
    /usr/bin/python3 tests/launcher/test_index.py [LAUNCHER] [unittest options]"""
import os, random, re, sys, tempfile, types, unittest

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
LAUNCHER = os.path.abspath(sys.argv.pop(1) if len(sys.argv) > 1 and os.path.isfile(sys.argv[1])
                           else os.environ.get("VIDORRA_RUN") or os.path.join(SOURCE, "deploy", "run"))

try:
    from re import _parser as parser
except ImportError:
    import sre_parse as parser


def load_launcher():
    sys.path.insert(0, os.path.dirname(os.path.realpath(LAUNCHER)))
    from launcher import index, tools
    return types.SimpleNamespace(**{**vars(tools), **vars(index)})


def sample(items, rnd):
    """A string the parsed pattern `items` may match (the caller checks that it does)."""
    out = ""
    for op, arg in items:
        op = str(op)
        if op == "LITERAL":
            out += chr(arg)
        elif op in ("NOT_LITERAL", "ANY"):
            out += "z" if arg == ord("q") else "q"
        elif op == "IN":
            kind, value = rnd.choice(arg)
            kind = str(kind)
            categories = {"CATEGORY_DIGIT": "4", "CATEGORY_SPACE": " "}
            out += (chr(value) if kind == "LITERAL" else chr(rnd.randint(*value)) if kind == "RANGE" else
                    "\u00e9" if kind == "NEGATE" else categories.get(str(value), "w"))
        elif op.endswith("_REPEAT"):
            out += "".join(sample(arg[2], rnd) for _ in range(rnd.randint(arg[0], min(arg[1], arg[0] + 2))))
        elif op in ("SUBPATTERN", "ATOMIC_GROUP", "BRANCH", "GROUPREF_EXISTS"):
            choices = {"SUBPATTERN": [arg[-1]], "ATOMIC_GROUP": [arg], "BRANCH": arg[1]}.get(op)
            out += sample(rnd.choice(choices or [b for b in arg[1:] if b] or [[]]), rnd)
        # anchors, lookarounds and back references add nothing
    return out


class ExtractorIndexTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        os.environ["VIDORRA_CACHE_DIR"] = tempfile.mkdtemp(prefix="run-cache-")
        cls.launcher = run = load_launcher()
        cls.yt_dlp = run.load_module("")
        if cls.yt_dlp is None or run.lazy_extractors() is None:
            raise unittest.SkipTest("yt-dlp with its lazy extractors is not there")
        cls.index = run.build_index(cls.yt_dlp)
        cls.classes = run.lazy_extractors()._ALL_CLASSES

    def test_pieces_of_text(self):
        pieces = self.launcher.required_texts
        self.assertEqual(pieces(r"https?://(?:www\.)?Example\.com/v/(?P<id>\d+)"),
                         [["example.com/v/"], ["http"], ["://"]])
        self.assertEqual(pieces(r"(?i)ABC(?:de)?f"), [["abc"], ["f"]])  # an optional part promises nothing
        self.assertEqual(pieces(r"x(?:yz)+w[ab]cd"), [["cd"], ["yz"], ["w"], ["x"]])
        self.assertEqual(pieces(r"caf\u00e9s"), [["caf"], ["s"]])  # only ASCII is folded safely
        # One of the alternatives: the most telling piece of each.
        self.assertEqual(pieces(r"(?:foo\.tv|ba?r\.com/x)/v"), [["/v"], ["foo.tv", "r.com/x"]])
        for none in (r"foo|\d", r"(?:foo)*", r"(?=foo)", r"(?", r"\d+"):
            self.assertEqual(pieces(none), [], none)

    def test_a_damaged_index_is_not_used(self):
        path = os.path.join(os.environ["VIDORRA_CACHE_DIR"], "damaged.json")
        for text, expected in ((b"\xff{", None), (b"[]", None), (b'{"addresses": {"A": ["a"]}, "embeds": {}}', None),
                               (b'{"addresses": {}, "embeds": {"A": [[[""]]]}}', None),
                               (b'{"addresses": {"A": [["a"]]}, "embeds": {"B": [], "C": [[["c", "d"]]]}}',
                                ({"A": [["a"]]}, {"B": [], "C": [[["c", "d"]]]}))):
            with open(path, "wb") as f:
                f.write(text)
            self.assertEqual(self.launcher.read_index(path), expected, text)

    def test_case_folding(self):
        """A character a case-insensitive pattern takes for an ASCII character folds to it."""
        for c in filter(re.compile(r"(?i)[\x21-\x7e]").fullmatch, map(chr, range(0x80, sys.maxunicode + 1))):
            folded = self.launcher.folded(c)
            self.assertTrue(folded.isascii() and re.fullmatch("(?i)" + re.escape(folded), c), hex(ord(c)))

    def test_no_claim_is_lost(self):
        """Strings the tool's own patterns match (addresses and embedded videos, in any case) contain every piece
        the index asks for; the extractors' own test addresses are claimed as before once the index is used."""
        rnd = random.Random(7)
        addresses, embeds = self.index["addresses"], self.index["embeds"]
        self.assertGreater(len(addresses), len(self.classes) * 3 // 4)
        checked, pages = 0, []
        for cls in self.classes:
            name = cls.__name__
            patterns = [(cls._VALID_URL, re.match, addresses.get(name))] if isinstance(cls._VALID_URL, str) else []
            for pattern, needs in zip(getattr(cls.real_class, "_EMBED_REGEX", []), embeds.get(name, [])):
                patterns.append((pattern, re.search, needs))
            for pattern, find, needs in patterns:
                if not needs:
                    continue
                tree = parser.parse(pattern)
                for text in (sample(tree, rnd) for _ in range(4)):
                    for candidate in (text, "".join(rnd.choice((c, c.upper())) for c in text)):
                        found = find(pattern, candidate)
                        if found:
                            checked += 1
                            folded = self.launcher.folded(found.group(0))
                            self.assertTrue(self.launcher.contains(folded, needs), (name, pattern, candidate, needs))
                            pages += [(cls, "<p>%s</p>" % candidate)] if find is re.search else []
        self.assertGreater(checked, len(addresses) * 2)

        tests = [(cls, test["url"]) for cls in self.classes
                 for test in cls.real_class.get_testcases(include_onlymatching=True) if "url" in test]
        claimed = [cls.real_class.suitable(url) for cls, url in tests]
        self.launcher.keep_index(self.yt_dlp)
        self.assertTrue(self.launcher.use_index(self.yt_dlp))
        self.assertEqual([cls.suitable(url) for cls, url in tests], claimed)

        ydl = self.yt_dlp.YoutubeDL({"quiet": True})
        self.assertGreater(len(pages), 100)

        def embedded(cls, page):
            try:
                return [e.get("url") for e in cls.extract_from_webpage(ydl, "http://page.invalid/", page)]
            except Exception as e:  # noqa: BLE001 - the same failure either way
                return type(e).__name__
        for cls, page in pages:
            self.assertEqual(embedded(cls, page), embedded(cls.real_class, page), (cls, page))
            self.assertEqual(embedded(cls, "<p>nothing</p>"), [])


if __name__ == "__main__":
    unittest.main(verbosity=2)
