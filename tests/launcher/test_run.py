#!/usr/bin/python3
"""The launcher deploy/run against the real yt-dlp, on media from make_media.sh served on 127.0.0.1:
    /usr/bin/python3 tests/launcher/test_run.py [LAUNCHER (default $VIDORRA_RUN, else deploy/run)] [unittest options]
Fake tools (VIDORRA_YTDLP) stand in only where the real one cannot answer (odd tables).
Runs share a folder for the cache and the helper (VIDORRA_RUN_DIR); the helpers left are stopped at the end."""
import concurrent.futures, glob, json, os, shutil, socket, subprocess, sys, tempfile, time, unittest
from support import helpers, serve, stop_helpers, wait_for, write

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
FIXTURES = os.path.join(SOURCE, "tests", "fixtures")
LAUNCHER = os.path.abspath(sys.argv.pop(1) if len(sys.argv) > 1 and os.path.isfile(sys.argv[1])
                           else os.environ.get("VIDORRA_RUN") or os.path.join(SOURCE, "deploy", "run"))
TITLE = "Local Test Clip - Sunrise"


STATE = tempfile.mkdtemp(prefix="run-state-")
CACHE = tempfile.mkdtemp(prefix="run-cache-")  # the extractor index


def env(tool=None, state=None):
    return dict(os.environ, VIDORRA_YTDLP=tool or "", VIDORRA_RUN_DIR=state or STATE, VIDORRA_CACHE_DIR=CACHE)


def run(*args, tool=None, cwd=None, state=None, **extra):
    return subprocess.run([LAUNCHER, *args], stdin=subprocess.DEVNULL, capture_output=True,
                          env=dict(env(tool, state), **extra), cwd=cwd, timeout=60)


def run_all(argvs, **kw):
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        return list(pool.map(lambda argv: run(*argv, **kw), argvs))


class LauncherTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tmp = tempfile.mkdtemp(prefix="run-test-")
        cls.addClassCleanup(shutil.rmtree, cls.tmp, True)
        cls.addClassCleanup(stop_helpers, STATE)
        cls.addClassCleanup(shutil.rmtree, CACHE, True)
        cls.media = media = os.path.join(cls.tmp, "media")
        subprocess.run(["/bin/sh", os.path.join(FIXTURES, "make_media.sh"), media], check=True, timeout=120)
        cls.base = serve(media, cls.addClassCleanup) + "/"
        cls.log = os.path.join(cls.tmp, "requests")  # of the slow server
        cls.slow = serve(media, cls.addClassCleanup, "--rate", "40000", "--log", cls.log) + "/"  # clip.mp4: seconds
        with socket.socket() as s:
            s.bind(("127.0.0.1", 0))
            cls.gone = "http://127.0.0.1:%d/" % s.getsockname()[1]  # a closed port

    def setUp(self):
        self.dir = tempfile.mkdtemp(dir=self.tmp)

    def test_titles(self):
        cases = [(("--get-title", "--get-duration", self.base + "watch.html"), [TITLE, "0:05"]),
                 (("--get-title", self.base + "watch.html"), [TITLE]),  # the program's self-test
                 (("--get-title", "--get-duration", self.base + "clip.mp4"), ["clip"])]
        for (argv, lines), r in zip(cases, run_all(argv for argv, _ in cases)):
            with self.subTest(argv=argv):
                self.assertEqual((r.returncode, r.stdout.decode().splitlines()), (0, lines), r.stderr)

    def test_format_tables(self):
        cases = [("clip.mp4", "mp4"), ("watch.html", "0")]
        for (name, code), r in zip(cases, run_all(("--list-formats", self.base + n) for n, _ in cases)):
            with self.subTest(name=name):
                self.assertEqual(r.returncode, 0, r.stderr)
                lines = [l for l in r.stdout.decode().splitlines() if l.strip()]
                head = [i for i, l in enumerate(lines) if l.split()[0] == "format"]
                self.assertEqual(len(head), 1, lines)
                self.assertTrue(lines[:head[0]] and all("[" in l for l in lines[:head[0]]), lines)  # [info] first
                rows = [l for l in lines[head[0] + 1:] if "[" not in l]
                best = [l for l in lines if l.split()[-1] == "(best)"]
                self.assertEqual(best, rows[-1:], lines)  # one "(best)", on the last format row
                self.assertEqual(best[0].split()[:2], [code, "mp4"])
                self.assertGreaterEqual(len(best[0].split()), 4)  # code, extension, resolution, note

    def test_downloads_keep_path_literal(self):
        """PATH is the exact name: no extension added or expansion done, relative names too, old file replaced."""
        odd = "a b $HOME ;\"q' 100%(title)s/~x $(touch pwned) `touch pwned2`; %d %% $PATH ${HOME}.mp4"
        cases = [("clip.mp4", "video.mp4", True), ("watch.html", "page.mp4", True), ("clip.mp4", "plain name", True),
                 ("clip.mp4", "clip.webm", True), ("clip.mp4", odd, True),
                 ("clip.mp4", "~home.mp4", False), ("clip.mp4", "-dash.mp4", False)]
        os.mkdir(os.path.join(self.dir, os.path.dirname(odd)))
        write(os.path.join(self.dir, "plain name"), "old")
        results = run_all([(self.base + page, "-o", os.path.join(self.dir, name) if absolute else name,
                            "--format", "0") for page, name, absolute in cases], cwd=self.dir)
        found = [os.path.relpath(os.path.join(d, f), self.dir) for d, _, fs in os.walk(self.dir) for f in fs]
        self.assertEqual(sorted(found), sorted(name for _, name, _ in cases))  # no .part, nothing else
        for (page, name, _), r in zip(cases, results):
            with self.subTest(page=page, name=name):
                self.assertEqual(r.returncode, 0, r.stderr)
                self.assertIn(b"video", subprocess.run(["ffprobe", "-v", "error", "-show_entries", "stream=codec_type",
                                                        os.path.join(self.dir, name)], capture_output=True).stdout)
                lines = r.stdout.decode().splitlines()
                progress = [l for l in lines if l.startswith("[download]") and "%" in l]
                self.assertTrue(progress and all(l.startswith("[download]") for l in lines), lines)
                self.assertNotRegex(progress[0], r"^\[download\]\s+0(\.0)?%")  # read as the program does
                self.assertRegex(progress[-1], r"^\[download\]\s+100(\.0)?%")

    def test_kill_stops_the_transfer(self):
        """Data goes to PATH.part; killing the launcher (the program's stop) stops the transfer, whether the
        launcher runs it itself or its helper does."""
        alone = tempfile.mkdtemp(dir=self.tmp)  # no helper there
        run("--get-title", self.base + "watch.html")
        wait_for(lambda: helpers(STATE), "the helper")
        for i, state in enumerate((alone, STATE)):
            with self.subTest(helper=state == STATE):
                path = os.path.join(self.dir, "slow%d.mp4" % i)
                proc = subprocess.Popen([LAUNCHER, self.slow + "clip.mp4", "-o", path, "--format", "0"],
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                        env=env(state=state), cwd=self.dir)
                self.addCleanup(proc.stdout.close)  # open until the end: a left-over tool must not die of it
                try:
                    self.assertRegex(proc.stdout.readline().decode(), r"^\[download\].*%")
                    wait_for(lambda: os.path.exists(path + ".part"), "the .part file", 20)
                finally:
                    proc.kill()
                    proc.wait()
                time.sleep(0.5)
                size = os.path.getsize(path + ".part")
                time.sleep(1.0)
                self.assertEqual(os.path.getsize(path + ".part"), size, "the download went on after the stop")
                self.assertFalse(os.path.exists(path))
        self.assertEqual(helpers(alone), [])  # a stopped run leaves no helper

    def test_one_extraction_per_address(self):
        """The runs for one address share one extraction, two addresses at once each their own; answers and a
        download come from it until it expires; a failed extraction is not kept."""
        urls = []
        for name, title in (("one.html", "First Page"), ("two.html", "Second Page")):
            with open(os.path.join(self.media, "watch.html")) as f:
                write(os.path.join(self.media, name), f.read().replace(TITLE, title))
            urls.append(self.base + name)
        argvs = [argv for url in urls for argv in
                 (("--get-title", "--get-duration", url), ("--list-formats", url), ("--list-formats", url))]
        results = run_all(argvs)
        for url, title, (t, f1, f2) in zip(urls, ("First Page", "Second Page"), zip(*[iter(results)] * 3)):
            with self.subTest(url=url):
                self.assertEqual((t.returncode, t.stdout.decode().splitlines()), (0, [title, "0:05"]), t.stderr)
                self.assertEqual([b"(best)" in f.stdout for f in (f1, f2)], [True, True])
                self.assertLessEqual(sum(b"Extracting URL" in f.stdout for f in (f1, f2)), 1)  # one extracted at most

        page, url = os.path.join(self.media, "one.html"), urls[0]
        os.rename(page, page + ".gone")
        out = os.path.join(self.dir, "kept.mp4")
        answers = run_all([("--get-title", url), (url, "-o", out, "--format", "0")])
        self.assertEqual([(r.returncode, r.stdout.splitlines()[:1]) for r in answers],
                         [(0, [b"First Page"]), (0, [answers[1].stdout.splitlines()[0]])])
        self.assertGreater(os.path.getsize(out), 100000)

        old = time.time() - 600
        for entry in glob.glob(os.path.join(STATE, "*.json")):
            os.utime(entry, (old, old))
        self.assertNotEqual(run("--get-title", url).returncode, 0)  # expired: the page is asked again
        with open(page + ".gone") as f:
            write(page, f.read().replace("First Page", "Changed Page"))
        self.assertEqual(run("--get-title", url).stdout, b"Changed Page\n")  # the failure was not kept

    def test_helper_and_its_socket(self):
        """A run left a helper, and the index of extractors; a run it took that loses its reader or helper fails, never
        run twice (fetched again); a socket or a folder of another user is never used."""
        state = tempfile.mkdtemp(dir=self.tmp)
        self.addCleanup(stop_helpers, state)
        relative = os.path.relpath(state, self.tmp)  # the helper works from "/"
        self.assertEqual(run("--get-title", self.base + "watch.html", state=relative, cwd=self.tmp).returncode, 0)
        wait_for(lambda: helpers(state) and glob.glob(os.path.join(state, "*.sock")), "the helper")
        self.assertEqual(len(glob.glob(os.path.join(CACHE, "extractors-*.json"))), 1)  # written before it listens
        helper, sock = helpers(state)[0], glob.glob(os.path.join(state, "*.sock"))[0]
        self.assertEqual(os.stat(state).st_mode & 0o777, 0o700)

        for gone, said in (("reader", b"Broken pipe"), ("helper", b"the launcher's helper stopped during this run")):
            with subprocess.Popen([LAUNCHER, self.slow + "clip.mp4", "-o", os.path.join(self.dir, gone), "--format",
                                   "0"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                  env=env(state=state)) as proc:
                self.assertRegex(proc.stdout.readline().decode(), r"^\[download\].*%")
                workers = subprocess.run(["pgrep", "-P", str(helper)], capture_output=True).stdout.split()
                out_pipe = os.readlink("/proc/%d/fd/1" % proc.pid)
                self.assertIn(out_pipe, [os.readlink("/proc/%s/fd/1" % w.decode()) for w in workers])  # a worker writes
                asked = os.path.getsize(self.log)  # a line per request
                proc.stdout.close() if gone == "reader" else stop_helpers(state)
                err = proc.stderr.read()
                self.assertEqual((proc.wait(60) != 0, os.path.getsize(self.log), said in err), (True, asked, True), err)

        if os.geteuid() != 0:
            self.skipTest("needs root to give files to another user")
        os.mkdir(state, 0o700)
        foreign = socket.socket(socket.AF_UNIX)
        self.addCleanup(foreign.close)
        foreign.bind(sock)
        foreign.listen()
        foreign.setblocking(False)
        os.chown(sock, 65534, 65534)
        other = tempfile.mkdtemp(dir=self.tmp)
        os.chown(other, 65534, 65534)
        for folder in (state, other):
            r = run("--get-title", self.base + "watch.html", state=folder)
            self.assertEqual((r.returncode, r.stdout), (0, TITLE.encode() + b"\n"), r.stderr)
        self.assertRaises(BlockingIOError, foreign.accept)
        self.assertEqual(os.listdir(other), [])

    def test_half_request(self):
        """Half a request is dropped within seconds: it holds up neither later runs nor the idle helper's end."""
        state = tempfile.mkdtemp(dir=self.tmp)
        self.addCleanup(stop_helpers, state)
        title = lambda: run("--get-title", self.base + "watch.html", state=state, VIDORRA_HELPER_IDLE="15").stdout
        self.assertEqual(title(), TITLE.encode() + b"\n")
        wait_for(lambda: helpers(state), "the helper")
        with socket.socket(socket.AF_UNIX) as half:
            half.connect(glob.glob(os.path.join(state, "*.sock"))[0])
            half.sendall(b"\0\0\1\0{")
            self.assertEqual(title(), TITLE.encode() + b"\n")
            half.settimeout(60)
            self.assertEqual(half.recv(1), b"")  # dropped
            wait_for(lambda: not helpers(state), "the idle helper to leave", 60)

    def test_failures_run_nothing(self):
        """Addresses never reach a shell nor become options; unreachable, missing, unknown things fail (not as usage)."""
        m, out = os.path.join(self.dir, "pwned"), os.path.join(self.dir, "o.mp4")
        get, dl = ("--get-title", "--get-duration"), ("-o", out, "--format", "0")
        cases = [(*get, "-x"), (*get, "; touch " + m), (*get, self.base + "clip.mp4; touch " + m),
                 ("--get-title", "-x"), ("--list-formats", "--version"), ("--list-formats", "$(touch %s)" % m),
                 ("-o", *dl), ("--version", *dl), ("`touch %s`" % m, *dl), (self.base + "clip.mp4 && touch " + m, *dl),
                 (*get, self.base + "nothing.html"), (*get, self.gone + "watch.html"),
                 ("--list-formats", self.gone + "clip.mp4"), (self.gone + "clip.mp4", *dl),
                 (self.base + "clip.mp4", "-o", out, "--format", "137")]
        for argv, r in zip(cases, run_all(cases, cwd=self.dir)):
            with self.subTest(argv=argv):
                self.assertNotIn(r.returncode, (0, 2), r.stderr)
                self.assertEqual(r.stdout, b"")
        self.assertEqual(os.listdir(self.dir), [])

    def test_arguments_reach_the_tool_unsplit(self):
        fake = write(os.path.join(self.dir, "fake"),  # prints the arguments it gets
                     "#!/usr/bin/python3\nimport json, sys\nprint(json.dumps(sys.argv[1:]))\n")
        url, path = "-http://x/a b;$(y)", "/tmp/a b/$HOME 50%.mp4"
        for fmt, selector in (("0", "0/b/b*"), ("22", "22")):
            r = run(url, "-o", path, "--format", fmt, tool=fake)
            self.assertEqual(r.returncode, 0, r.stderr)
            args = json.loads(r.stdout)
            self.assertEqual(args[-2:], ["--", "http://" + url])  # no scheme of its own
            self.assertTrue("--ignore-config" in args and "--update" not in args, args)
            self.assertEqual(args[args.index("--format") + 1], selector)
            template = args[args.index("--output") + 1]
            self.assertTrue(template.endswith("50%%.mp4") and "$HOME" not in template, template)

    def test_separate_streams_are_marked(self):
        table = ("[youtube] abc: Downloading webpage\\n[info] Available formats for abc:\\n"
                 "format code  extension  resolution note\\n"
                 "140          m4a        audio only tiny  129k , m4a_dash container, mp4a.40.2@129k\\n"
                 "18           mp4        640x360    360p  539k , avc1.42001E, mp4a.40.2@ 96k\\n"
                 "137          mp4        1920x1080  1080p 4393k , mp4_dash container, avc1.640028, video only\\n")
        fake = write(os.path.join(self.dir, "table"), "#!/bin/sh\nprintf '" + table + "'\n")
        lines = run("--list-formats", "http://x/", tool=fake).stdout.decode().splitlines()
        self.assertTrue(lines[3].endswith("DASH audio") and lines[5].endswith("DASH video"), lines)
        self.assertTrue(lines[4].endswith("(best)"), lines)
        lone = write(os.path.join(self.dir, "lone"), "#!/bin/sh\nprintf 'format code  extension  resolution note\\n"
                     "mp3 mp3 audio only\\n'\n")
        self.assertEqual(run("--list-formats", "http://x/", tool=lone).stdout.decode().splitlines()[-1],
                         "mp3 mp3 audio only (best)")

    def test_bad_usage(self):
        cases = [[], ["--bogus"], ["--list-formats"], ["--get-title"], ["--list-formats", "a", "b"], ["--update", "x"],
                 ["--get-title", "--get-title", "u"], ["u", "-o", "p"], ["u", "-o", "p", "--format", "best"],
                 ["u", "-o", "p", "--format", "-1"], ["u", "-o", "", "--format", "1"],
                 ["u", "--format", "1", "-o", "p"], ["u", "-o", "p", "--format", "1", "x"]]
        for argv, r in zip(cases, run_all(cases, tool="/nonexistent/tool")):
            with self.subTest(argv=argv):
                self.assertEqual((r.returncode, r.stdout), (2, b""))
                self.assertIn(b"usage", r.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
