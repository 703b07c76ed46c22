#!/usr/bin/python3
"""run --update against a release server on 127.0.0.1 with the real layout (a zipapp built from the installed yt-dlp
with a raised version, SHA2-256SUMS signed with a throwaway key, a deno stand-in archive); the private copy then in
use; cookies from a Firefox profile.  /usr/bin/python3 tests/launcher/test_update.py (VIDORRA_RUN names the launcher)"""
import concurrent.futures, filecmp, glob, hashlib, http.server, io, json, os, resource, shutil, signal, subprocess, sys, tempfile
import threading, time, unittest, zipfile

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
LAUNCHER = os.environ.get("VIDORRA_RUN") or os.path.join(SOURCE, "deploy", "run")

TMP = tempfile.mkdtemp(prefix="run-update-")
GNUPG = os.path.join(TMP, "gnupg")
DENO = "deno-%s-unknown-linux-gnu.zip" % os.uname().machine
sys.path.insert(0, os.path.join(SOURCE, "tests", "fixtures"))
from make_zipapp import zipapp  # noqa: E402
from support import helpers, serve, stop_helpers, wait_for, write  # noqa: E402


def gpg(*args, data=None):
    return subprocess.run(["gpg", "--batch", "--quiet", "--homedir", GNUPG, *args], input=data, check=True,
                          capture_output=True).stdout


class Releases(http.server.ThreadingHTTPServer):
    """The release server: `files` maps a path to bytes, or to "stall" (part of the body, then nothing)."""
    files = {}

    class Handler(http.server.BaseHTTPRequestHandler):
        def log_message(self, *args):
            pass

        def do_GET(self):
            body = self.server.files.get(self.path)
            if body is None:
                return self.send_error(404)
            stall = body == "stall"
            self.send_response(200)
            self.send_header("Content-Length", str(4 << 20 if stall else len(body)))
            self.end_headers()
            try:
                self.wfile.write(b"x" * 1000 if stall else body)
                self.wfile.flush()
                time.sleep(10 if stall else 0)
            except OSError:  # the launcher gave up
                pass

    def __init__(self):
        super().__init__(("127.0.0.1", 0), self.Handler)
        self.api = "http://127.0.0.1:%d/api/" % self.server_address[1]
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def publish(self, tag, tool, signer="good", sums=None, deno="deno 2.5.6 (stable, release)"):
        sums = sums or b"%s  yt-dlp\n" % hashlib.sha256(tool).hexdigest().encode()
        files = {"yt-dlp": tool, "SHA2-256SUMS": sums, "SHA2-256SUMS.sig": gpg("-u", signer, "--detach-sign",
                                                                              data=sums)}
        archive = io.BytesIO()
        with zipfile.ZipFile(archive, "w") as z:
            z.writestr("deno", "#!/bin/sh\necho '%s'\n" % deno)
        archive = archive.getvalue()
        denos = {DENO: archive, DENO + ".sha256sum": b"%s  %s\n" % (hashlib.sha256(archive).hexdigest().encode(),
                                                                    DENO.encode())}
        self.files = {}
        for repo, release, assets in (("yt-dlp/yt-dlp", tag, files), ("denoland/deno", "v2.5.6", denos)):
            self.files["/api/%s/releases/latest" % repo] = json.dumps({"tag_name": release, "assets": [
                {"name": n, "browser_download_url": self.api + "dl/%s/%s" % (release, n)} for n in assets]}).encode()
            self.files.update(("/api/dl/%s/%s" % (release, n), body) for n, body in assets.items())


class UpdateTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        os.makedirs(GNUPG, 0o700)
        cls.addClassCleanup(shutil.rmtree, TMP, True)
        cls.addClassCleanup(subprocess.run, ["gpgconf", "--homedir", GNUPG, "--kill", "all"])
        for uid in ("good", "bad"):
            gpg("--passphrase", "", "--quick-gen-key", uid, "ed25519", "sign", "never")
        with open(os.path.join(TMP, "key.asc"), "wb") as f:
            f.write(gpg("--armor", "--export", "good"))
        cls.v1, cls.v2 = zipapp("2099.01.01"), zipapp("2099.02.02")
        cls.server = Releases()
        cls.addClassCleanup(cls.server.shutdown)

    def setUp(self):
        self.home = tempfile.mkdtemp(dir=TMP)
        self.data = os.path.join(self.home, "data")
        self.tools = os.path.join(self.data, "Vidorra 2", "tools")
        self.env = dict(os.environ, HOME=self.home, XDG_DATA_HOME=self.data, PATH="/usr/bin:/bin", VIDORRA_YTDLP="",
                        VIDORRA_RUN_DIR=os.path.join(self.home, "state"), VIDORRA_RELEASE_API=self.server.api,
                        VIDORRA_CACHE_DIR=os.path.join(self.home, "cache"), VIDORRA_UPDATE_PATIENCE="1",
                        VIDORRA_SIGNING_KEY=os.path.join(TMP, "key.asc"))

    def tearDown(self):
        stop_helpers(os.path.join(self.home, "state"))

    def run_(self, *args, limit=None):
        def small_files():  # a full disk: writes past `limit` bytes fail
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))
        r = subprocess.run([LAUNCHER, *args], stdin=subprocess.DEVNULL, capture_output=True, env=self.env,
                           timeout=120, preexec_fn=small_files if limit else None)
        return r.returncode, r.stdout.decode(), r.stderr.decode()

    def settings(self, line):
        with open(os.path.join(self.data, "Vidorra 2", "sniffer.ini"), "w") as f:
            f.write("[General]\n%s\n" % line)

    def installed(self):
        """What the tools folder holds: {name: sha256}; nothing half-written, and only this user may look in."""
        self.assertEqual(os.stat(self.tools).st_mode & 0o777, 0o700)
        names = sorted(os.listdir(self.tools))
        self.assertFalse([n for n in names if n.startswith(".") and n != ".update.lock"], names)
        digests = {}
        for name in (n for n in names if not n.startswith(".")):
            with open(os.path.join(self.tools, name), "rb") as f:
                digests[name] = hashlib.file_digest(f, "sha256").hexdigest()
        return digests

    def test_install_update_and_use(self):
        self.server.publish("2099.01.01", self.v1)
        code, out, err = self.run_("--update")
        self.assertEqual((code, out), (0, "Updated yt-dlp to version 2099.01.01\n"), err)
        self.assertIn("[download] 100.0% of yt-dlp", err)
        first = self.installed()
        self.assertEqual(sorted(first), ["deno", "yt-dlp"])
        self.assertEqual(self.run_("--update")[:2], (0, "yt-dlp is up to date (2099.01.01)\n"))
        self.assertEqual(self.run_("--version")[1], "2099.01.01\n")
        self.assertEqual(self.installed(), first)

        self.server.publish("2099.02.02", self.v2)
        self.assertEqual(self.run_("--update")[:2], (0, "Updated yt-dlp to version 2099.02.02\n"))
        self.assertEqual(self.installed()["yt-dlp.previous"], first["yt-dlp"])
        self.assertEqual(self.run_("--version")[1], "2099.02.02\n")

        # The private copy answers from the helper too; a damaged one gives way to the system's.
        media = os.path.join(self.home, "media")
        subprocess.run(["/bin/sh", os.path.join(SOURCE, "tests", "fixtures", "make_media.sh"), media], check=True)
        clip = serve(media, self.addCleanup, "--cookie", "session=s3cret") + "/clip.mp4"
        target = os.path.join(self.home, "out.mp4")
        self.assertNotEqual(self.run_(clip, "-o", target, "--format", "0")[0], 0)  # 403 without the cookie

        profile = os.path.join(self.home, "firefox profile")
        os.makedirs(profile)
        import sqlite3
        with sqlite3.connect(os.path.join(profile, "cookies.sqlite")) as db:
            db.execute("CREATE TABLE moz_cookies (id INTEGER PRIMARY KEY, originAttributes TEXT DEFAULT '', name TEXT,"
                       " value TEXT, host TEXT, path TEXT, expiry INTEGER, lastAccessed INTEGER, creationTime INTEGER,"
                       " isSecure INTEGER, isHttpOnly INTEGER)")
            db.execute("INSERT INTO moz_cookies (name, value, host, path, expiry, isSecure, isHttpOnly) VALUES"
                       " ('session', 's3cret', '127.0.0.1', '/', 4102444800, 0, 0)")
        self.settings("cookies_from_browser=\"firefox:%s\"" % profile)
        for _ in range(2):  # the run that loads the tool, then its helper
            self.assertEqual(self.run_(clip, "-o", target, "--format", "0")[0], 0)
            self.assertTrue(filecmp.cmp(target, os.path.join(media, "clip.mp4"), shallow=False))
            os.unlink(target)
        wait_for(lambda: glob.glob(os.path.join(self.env["VIDORRA_CACHE_DIR"], "extractors-*.json"))
                 and helpers(os.path.join(self.home, "state")), "the private copy's helper and its index", 120)
        self.assertTrue(glob.glob(os.path.join(self.env["VIDORRA_CACHE_DIR"], "yt-dlp-*/yt_dlp/__pycache__")))
        self.assertEqual(self.run_("--get-title", clip)[:2], (0, "clip\n"))
        self.assertIn("(best)", self.run_("--list-formats", clip)[1])
        os.truncate(os.path.join(self.tools, "yt-dlp"), 100000)
        self.env["VIDORRA_RUN_DIR"] = "/"  # not this user's alone: no helper stays
        self.assertEqual(self.run_("--get-title", clip), (0, "clip\n", ""))

    def test_failures_leave_the_working_copy(self):
        # A full disk: a tmpfs that is made full (as root), else a limit on the size of files written.
        tmpfs = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64m", "tmpfs", self.data]).returncode == 0
        if tmpfs:
            self.addCleanup(subprocess.run, ["umount", "-l", self.data])
        self.server.publish("2099.01.01", self.v1)
        self.assertEqual(self.run_("--update")[0], 0)
        working = self.installed()
        cases = [("a digest that does not match", dict(sums=b"%s  yt-dlp\n" % (b"0" * 64)), "does not match"),
                 ("a bad signature", dict(signer="bad"), "signature of the release's digests is not good \\(gpgv: "),
                 ("a copy that does not run", dict(tool=zipapp("2099.03.03", "raise SystemExit('no')")), "does not run"),
                 ("a stalled transfer", dict(stall=True), "the transfer of yt-dlp stopped"),
                 ("a full disk", dict(limit=500000), "cannot write yt-dlp"),
                 ("the server gone", dict(gone=True), "cannot reach 127.0.0.1")]
        for what, how, reason in cases:
            with self.subTest(what):
                self.server.publish("2099.02.02", how.get("tool", self.v2), how.get("signer", "good"), how.get("sums"))
                if how.get("stall"):
                    self.server.files["/api/dl/2099.02.02/yt-dlp"] = "stall"
                if how.get("gone"):
                    self.env["VIDORRA_RELEASE_API"] = "http://127.0.0.1:9/api/"
                disk, fill = os.statvfs(self.data), tmpfs and how.get("limit")
                if fill:  # room for 300 KiB more
                    used = (disk.f_blocks - disk.f_bfree) * disk.f_frsize // 1024
                    subprocess.run(["mount", "-o", "remount,size=%dk" % (used + 300), self.data], check=True)
                code, out, err = self.run_("--update", limit=None if tmpfs else how.get("limit"))
                if fill:
                    subprocess.run(["mount", "-o", "remount,size=64m", self.data], check=True)
                self.assertEqual((code, out), (1, "yt-dlp 2099.01.01 stays in use\n"), err)
                self.assertRegex(err, "run: update failed: .*" + reason)
                self.assertEqual(self.installed(), working)

    def test_two_updates_at_once_and_the_system_tool(self):
        self.server.publish("2099.01.01", self.v1)
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            outs = sorted(r[1] for r in pool.map(lambda _: self.run_("--update"), range(2)))
        self.assertEqual(outs, ["Updated yt-dlp to version 2099.01.01\n", "yt-dlp is up to date (2099.01.01)\n"])
        self.settings("downloader_tool=system")
        code, out, err = self.run_("--update")
        self.assertEqual(code, 0, err)
        self.assertRegex(out, r"^yt-dlp \S+ is the system's copy, kept by the setting downloader_tool=system")
        self.assertNotIn("2099", self.run_("--version")[1])

    @unittest.skipUnless(os.environ.get("VIDORRA_APP") and os.environ.get("DISPLAY"), "no program or X display")
    def test_first_start_in_the_window(self):
        """A fresh account's first start installs the program's own copy and names it in the title; a start on
        another day asks again and finds it up to date."""
        self.server.publish("2099.01.01", self.v1)
        asked = []
        self.server.RequestHandlerClass.log_request = lambda handler, *_: asked.append(handler.path)
        self.addCleanup(delattr, self.server.RequestHandlerClass, "log_request")
        for start in range(2):
            app = subprocess.Popen([os.environ["VIDORRA_APP"]], env=dict(self.env, QT_QPA_PLATFORM="xcb"),
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            self.addCleanup(app.wait, 30)
            self.addCleanup(app.kill)
            wait_for(lambda: app.poll() is None and asked.count("/api/yt-dlp/yt-dlp/releases/latest") > start and
                     not subprocess.run(["xdotool", "search", "--name", r"downloader 2099\.01\.01"],
                                        capture_output=True).returncode, "a window title naming the version", 120)
            app.terminate()
            app.wait(30)
            subprocess.run(["sed", "-i", "s/^last_update=.*/last_update=0/",  # the next start is on another day
                            os.path.join(self.data, "Vidorra 2", "sniffer.ini")], check=True)
        self.assertEqual(asked.count("/api/yt-dlp/yt-dlp/releases/latest"), 2)
        self.assertEqual(asked.count("/api/dl/2099.01.01/yt-dlp"), 1)

    def test_runtime_and_cookie_options(self):
        """A yt-dlp that takes --js-runtimes gets a new enough deno or node, by its absolute path."""
        bin_ = os.path.join(self.home, "bin")
        os.makedirs(bin_)
        fake = os.path.join(bin_, "yt-dlp")
        write(fake, "#!/bin/sh\ncase \"$*\" in *--help*) echo '  --js-runtimes RUNTIME'; exit 0;; esac\n"
               "printf '%s\\n' \"$@\" > \"$0.args\"\n")
        self.env.update(VIDORRA_YTDLP=fake, PATH=bin_ + ":/usr/bin:/bin")
        for deno, node, expected in (("deno 2.2.0", "v22.1.0", "node"), ("deno 2.3.1", "v22.1.0", "deno"),
                                     ("deno 1.0", "v20.0.0", None)):
            write(os.path.join(bin_, "deno"), "#!/bin/sh\necho '%s'\n" % deno)
            write(os.path.join(bin_, "node"), "#!/bin/sh\necho '%s'\n" % node)
            self.run_("--list-formats", "http://127.0.0.1:9/x")
            with open(fake + ".args") as f:
                args = f.read().splitlines()
            given = args[args.index("--js-runtimes") + 1] if "--js-runtimes" in args else None
            self.assertEqual(given, expected and "%s:%s" % (expected, os.path.join(bin_, expected)))


if __name__ == "__main__":
    unittest.main(verbosity=2)
