#!/usr/bin/python3
"""Tests of the downloader launcher deploy/run against the real yt-dlp.

Usage:
    /usr/bin/python3 tests/launcher/test_run.py [LAUNCHER] [unittest options]

The launcher path is taken from the first argument when it names a file,
else from the environment variable VIDORRA_RUN, else deploy/run of this
source tree.  Media is generated with tests/fixtures/make_media.sh into a
temporary folder and served by tests/fixtures/media_server.py on 127.0.0.1;
nothing here reaches the internet.  The update tests use the real tool only
when the system's package manager owns it (the launcher then answers without
asking the tool); everything else about updates runs against small fake
tools selected through VIDORRA_YTDLP.
"""

import concurrent.futures
import json
import os
import shutil
import signal
import socket
import stat
import subprocess
import sys
import tempfile
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(os.path.dirname(HERE))
FIXTURES = os.path.join(SOURCE, "tests", "fixtures")

LAUNCHER = os.environ.get("VIDORRA_RUN") or os.path.join(SOURCE, "deploy", "run")
if len(sys.argv) > 1 and not sys.argv[1].startswith("-") and os.path.isfile(sys.argv[1]):
    LAUNCHER = sys.argv.pop(1)
LAUNCHER = os.path.abspath(LAUNCHER)

TITLE = "Local Test Clip - Sunrise"
TIMEOUT = 60

media_dir = None
work_dir = None
servers = []
base = None       # http://127.0.0.1:<port>
slow_base = None  # the same files, sent at about 40 kB/s


def start_server(directory, *extra):
    proc = subprocess.Popen(
        ["/usr/bin/python3", os.path.join(FIXTURES, "media_server.py"), directory, "0"] + list(extra),
        stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    line = proc.stdout.readline().decode().split()
    if len(line) != 2 or line[0] != "PORT":
        proc.kill()
        raise RuntimeError("media server did not report its port: %r" % line)
    servers.append(proc)
    return "http://127.0.0.1:%s" % line[1]


def setUpModule():
    global media_dir, work_dir, base, slow_base
    media_dir = tempfile.mkdtemp(prefix="run-media-")
    work_dir = tempfile.mkdtemp(prefix="run-work-")
    subprocess.run(["/bin/sh", os.path.join(FIXTURES, "make_media.sh"), media_dir],
                   check=True, timeout=120)
    base = start_server(media_dir)
    slow_base = start_server(media_dir, "--rate", "40000")


def tearDownModule():
    for proc in servers:
        proc.stdin.close()  # the server leaves when its stdin closes
        try:
            proc.wait(timeout=10)
        except subprocess.TimeoutExpired:
            proc.kill()
            proc.wait()
        proc.stdout.close()
    shutil.rmtree(media_dir, ignore_errors=True)
    shutil.rmtree(work_dir, ignore_errors=True)


def launcher_env(tool=None):
    env = dict(os.environ)
    env.pop("VIDORRA_YTDLP", None)
    if tool:
        env["VIDORRA_YTDLP"] = tool
    return env


def run(*args, tool=None, cwd=None):
    return subprocess.run([LAUNCHER] + list(args), stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          env=launcher_env(tool), cwd=cwd or work_dir, timeout=TIMEOUT)


def out_lines(result):
    return result.stdout.decode("utf-8", "replace").splitlines()


def has_video_stream(path):
    r = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "v",
                        "-show_entries", "stream=codec_type", "-of", "csv=p=0", path],
                       stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=30)
    return r.returncode == 0 and "video" in r.stdout.decode()


def closed_port():
    s = socket.socket()
    s.bind(("127.0.0.1", 0))
    port = s.getsockname()[1]
    s.close()
    return port


def app_percent(chunk):
    """The program's reading of a progress chunk: the text between the first
    "]" and the first "%" as a number (0 when it is not one)."""
    a = chunk.find("]")
    b = chunk.find("%")
    length = b - (a + 1)
    text = chunk[a + 1:] if length < 0 else chunk[a + 1:a + 1 + length]
    try:
        return float(text.strip())
    except ValueError:
        return 0.0


class TitleTest(unittest.TestCase):
    def test_page_gives_title_and_duration(self):
        r = run("--get-title", "--get-duration", base + "/watch.html")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertEqual(out_lines(r), [TITLE, "0:05"])

    def test_direct_link_gives_title_only(self):
        r = run("--get-title", "--get-duration", base + "/clip.mp4")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertEqual(out_lines(r), ["clip"])

    def test_self_test_prints_raw_title(self):
        r = run("--get-title", base + "/watch.html")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertEqual(r.stdout.decode().strip(), TITLE)

    def test_missing_page_fails(self):
        r = run("--get-title", "--get-duration", base + "/nothing-here.html")
        self.assertNotEqual(r.returncode, 0)
        self.assertEqual(r.stdout, b"")

    def test_unreachable_address_fails(self):
        url = "http://127.0.0.1:%d/watch.html" % closed_port()
        r = run("--get-title", "--get-duration", url)
        self.assertNotEqual(r.returncode, 0)
        self.assertEqual(r.stdout, b"")


class FormatsTest(unittest.TestCase):
    def check_table(self, url, best_code):
        r = run("--list-formats", url)
        self.assertEqual(r.returncode, 0, r.stderr)
        lines = [l for l in out_lines(r) if l.strip()]
        headers = [i for i, l in enumerate(lines) if l.split()[0] == "format"]
        self.assertEqual(len(headers), 1, lines)
        self.assertTrue(any("[" in l for l in lines[:headers[0]]), lines)
        # Outside the table every line is a bracketed information line.
        for l in lines[:headers[0]]:
            self.assertIn("[", l)
        rows = [l for l in lines[headers[0] + 1:] if "[" not in l]
        self.assertTrue(rows, lines)
        best = [l for l in lines if l.split()[-1] == "(best)"]
        self.assertEqual(len(best), 1, lines)
        self.assertEqual(best[0], rows[-1])
        cols = best[0].split()
        self.assertEqual(cols[0], best_code)
        self.assertEqual(cols[1], "mp4")
        self.assertGreaterEqual(len(cols), 4)  # code, extension, resolution, note
        return lines

    def test_direct_link_table(self):
        self.check_table(base + "/clip.mp4", "mp4")

    def test_page_table(self):
        self.check_table(base + "/watch.html", "0")

    def test_unreachable_address_fails(self):
        r = run("--list-formats", "http://127.0.0.1:%d/clip.mp4" % closed_port())
        self.assertNotEqual(r.returncode, 0)


class DownloadTest(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp(dir=work_dir)

    def download(self, url, path, fmt="0"):
        r = run(url, "-o", path, "--format", fmt, cwd=self.dir)
        return r

    def check_done(self, r, path):
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertTrue(os.path.isfile(path), os.listdir(os.path.dirname(path)))
        self.assertFalse(os.path.exists(path + ".part"))
        self.assertTrue(has_video_stream(path))
        lines = out_lines(r)
        progress = [l for l in lines if l.startswith("[download]") and "%" in l]
        self.assertTrue(progress, lines)
        self.assertTrue(all(l.startswith("[download]") for l in lines), lines)
        self.assertGreater(app_percent(progress[0]), 0.0)
        self.assertEqual(app_percent(progress[-1]), 100.0)

    def test_direct_link_format_0(self):
        path = os.path.join(self.dir, "video.mp4")
        r = self.download(base + "/clip.mp4", path)
        self.check_done(r, path)
        self.assertEqual(os.listdir(self.dir), ["video.mp4"])

    def test_page_format_0(self):
        path = os.path.join(self.dir, "page.mp4")
        self.check_done(self.download(base + "/watch.html", path), path)

    def test_no_extension_is_added(self):
        path = os.path.join(self.dir, "plain name")
        self.check_done(self.download(base + "/clip.mp4", path), path)
        self.assertEqual(os.listdir(self.dir), ["plain name"])

    def test_other_extension_is_kept(self):
        path = os.path.join(self.dir, "clip.webm")
        self.check_done(self.download(base + "/clip.mp4", path), path)
        self.assertEqual(os.listdir(self.dir), ["clip.webm"])

    def test_path_is_literal(self):
        sub = os.path.join(self.dir, "a b $HOME ;\"q' 100%(title)s")
        os.mkdir(sub)
        name = "~x $(touch pwned) `touch pwned2`; %d %% $PATH ${HOME}.mp4"
        path = os.path.join(sub, name)
        self.check_done(self.download(base + "/clip.mp4", path), path)
        self.assertEqual(os.listdir(sub), [name])
        self.assertEqual(os.listdir(self.dir), [os.path.basename(sub)])

    def test_relative_path_with_tilde_and_dash(self):
        for name in ("~home.mp4", "-dash.mp4"):
            r = self.download(base + "/clip.mp4", name)
            self.assertEqual(r.returncode, 0, r.stderr)
            self.assertTrue(os.path.isfile(os.path.join(self.dir, name)), os.listdir(self.dir))
        self.assertEqual(sorted(os.listdir(self.dir)), ["-dash.mp4", "~home.mp4"])

    def test_existing_file_is_replaced(self):
        path = os.path.join(self.dir, "again.mp4")
        with open(path, "wb") as f:
            f.write(b"old")
        self.check_done(self.download(base + "/clip.mp4", path), path)
        self.assertGreater(os.path.getsize(path), 1000)

    def test_unknown_numeric_format_fails(self):
        path = os.path.join(self.dir, "x.mp4")
        r = self.download(base + "/clip.mp4", path, "137")
        self.assertNotEqual(r.returncode, 0)
        self.assertEqual(os.listdir(self.dir), [])

    def test_unreachable_address_fails(self):
        path = os.path.join(self.dir, "x.mp4")
        r = self.download("http://127.0.0.1:%d/clip.mp4" % closed_port(), path)
        self.assertNotEqual(r.returncode, 0)
        self.assertEqual(os.listdir(self.dir), [])

    def test_part_file_then_stop(self):
        """While running the data goes to PATH.part; killing the launcher
        (as the program's stop does) stops the transfer itself."""
        path = os.path.join(self.dir, "slow.mp4")
        proc = subprocess.Popen([LAUNCHER, slow_base + "/clip.mp4", "-o", path, "--format", "0"],
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, env=launcher_env(), cwd=self.dir)
        try:
            deadline = time.monotonic() + 20
            while not os.path.exists(path + ".part") and time.monotonic() < deadline:
                self.assertIsNone(proc.poll(), proc.stderr.read() if proc.poll() is not None else "")
                time.sleep(0.05)
            self.assertTrue(os.path.exists(path + ".part"))
            self.assertFalse(os.path.exists(path))
            first = proc.stdout.readline().decode()
            self.assertTrue(first.startswith("[download]") and "%" in first, first)
        finally:
            proc.kill()
            proc.wait()
            proc.stdout.close()
            proc.stderr.close()
        time.sleep(0.5)
        size = os.path.getsize(path + ".part")
        time.sleep(1.0)
        self.assertEqual(os.path.getsize(path + ".part"), size, "download went on after the stop")
        self.assertFalse(os.path.exists(path))


class ArgumentVectorTest(unittest.TestCase):
    """Addresses and paths are single arguments and never reach a shell."""

    def setUp(self):
        self.dir = tempfile.mkdtemp(dir=work_dir)
        self.marker = os.path.join(self.dir, "pwned")

    def assert_clean_failure(self, r):
        self.assertNotEqual(r.returncode, 0)
        self.assertNotEqual(r.returncode, 2, "taken as a usage error: " + r.stderr.decode())
        self.assertFalse(os.path.exists(self.marker))

    def test_hostile_addresses(self):
        m = self.marker
        out = os.path.join(self.dir, "o.mp4")
        cases = [
            ("--get-title", "--get-duration", "-x"),
            ("--get-title", "--get-duration", "; touch " + m),
            ("--get-title", "--get-duration", base + "/clip.mp4; touch " + m),
            ("--get-title", "-x"),
            ("--list-formats", "--version"),
            ("--list-formats", "$(touch %s)" % m),
            ("-o", "-o", out, "--format", "0"),
            ("--version", "-o", out, "--format", "0"),
            ("`touch %s`" % m, "-o", out, "--format", "0"),
            (base + "/clip.mp4 && touch " + m, "-o", out, "--format", "0"),
        ]
        with concurrent.futures.ThreadPoolExecutor(max_workers=4) as pool:
            results = list(pool.map(lambda argv: run(*argv, cwd=self.dir), cases))
        for argv, r in zip(cases, results):
            with self.subTest(argv=argv):
                self.assert_clean_failure(r)
        self.assertEqual(os.listdir(self.dir), [])

    def test_vector_reaches_tool_unsplit(self):
        """A fake tool records its arguments: the address comes after "--",
        the path is escaped as a literal output name."""
        record = os.path.join(self.dir, "args.json")
        fake = os.path.join(self.dir, "fake-tool")
        with open(fake, "w") as f:
            f.write("#!/usr/bin/python3\nimport json, sys\n"
                    "json.dump(sys.argv[1:], open(%r, 'w'))\n" % record)
        os.chmod(fake, 0o755)
        url = "-http://x/a b;$(y)"
        path = "/tmp/a b/$HOME 50%.mp4"
        r = run(url, "-o", path, "--format", "0", tool=fake)
        self.assertEqual(r.returncode, 0, r.stderr)
        with open(record) as f:
            args = json.load(f)
        self.assertEqual(args[-2:], ["--", url])
        self.assertIn("--ignore-config", args)
        template = args[args.index("--output") + 1]
        self.assertNotIn("$HOME", template)
        self.assertIn("50%%.mp4", template)
        self.assertEqual(args[args.index("--format") + 1], "0/b/b*")
        self.assertNotIn("--update", args)

        r = run(url, "-o", path, "--format", "22", tool=fake)
        with open(record) as f:
            args = json.load(f)
        self.assertEqual(args[args.index("--format") + 1], "22")


class UsageTest(unittest.TestCase):
    def test_unknown_shapes(self):
        for argv in ([], ["--bogus"], ["--list-formats"], ["--get-title"],
                     ["--list-formats", "a", "b"], ["--update", "x"],
                     ["--get-title", "--get-title", "u"],
                     ["u", "-o", "p"], ["u", "-o", "p", "--format", "best"],
                     ["u", "-o", "p", "--format", "-1"], ["u", "-o", "", "--format", "1"],
                     ["u", "--format", "1", "-o", "p"], ["u", "-o", "p", "--format", "1", "x"]):
            with self.subTest(argv=argv):
                r = run(*argv, tool="/nonexistent/tool")
                self.assertEqual(r.returncode, 2)
                self.assertEqual(r.stdout, b"")
                self.assertIn(b"usage", r.stderr)


def write_fake(directory, name, body):
    path = os.path.join(directory, name)
    with open(path, "w") as f:
        f.write("#!/bin/sh\n"
                "for a; do [ \"$a\" = --version ] && { echo 2099.01.01; exit 0; }; done\n"
                + body)
    os.chmod(path, os.stat(path).st_mode | stat.S_IXUSR | stat.S_IXGRP | stat.S_IXOTH)
    return path


class UpdateTest(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp(dir=work_dir)

    def test_packaged_tool(self):
        tool = shutil.which("yt-dlp")
        if not tool or not shutil.which("dpkg-query"):
            self.skipTest("no yt-dlp installed by dpkg here")
        owned = subprocess.run(["dpkg-query", "-S", os.path.realpath(tool)],
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        if owned.returncode != 0:
            # The launcher would ask the tool to update itself over the
            # network: not in a test.
            self.skipTest("yt-dlp here is not owned by the package manager")
        version = subprocess.run([tool, "--ignore-config", "--version"], stdout=subprocess.PIPE,
                                 timeout=30).stdout.decode().strip()
        r = run("--update")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertIn(version, r.stdout.decode())
        self.assertIn("package manager", r.stdout.decode())

    def test_self_update_success(self):
        fake = write_fake(self.dir, "ok", "echo 'Updated yt-dlp to 2099.01.02'\nexit 0\n")
        r = run("--update", tool=fake)
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertIn(b"Updated yt-dlp to 2099.01.02", r.stdout)

    def test_self_update_failure(self):
        fake = write_fake(self.dir, "fail",
                          "echo 'ERROR: Unable to write to /opt/yt-dlp; Try running as administrator' >&2\n"
                          "exit 1\n")
        r = run("--update", tool=fake)
        self.assertNotEqual(r.returncode, 0)

    def test_self_update_network_failure(self):
        fake = write_fake(self.dir, "net",
                          "echo 'ERROR: Unable to obtain version info; Please try again later' >&2\n"
                          "exit 100\n")
        r = run("--update", tool=fake)
        self.assertNotEqual(r.returncode, 0)

    def test_package_manager_refusal(self):
        fake = write_fake(self.dir, "pm",
                          "echo 'ERROR: You installed yt-dlp with a package manager or setup.py; "
                          "Use that to update' >&2\nexit 100\n")
        r = run("--update", tool=fake)
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertIn(b"2099.01.01", r.stdout)
        self.assertIn(b"package manager", r.stdout)


if __name__ == "__main__":
    unittest.main(verbosity=2)
