"""yt-dlp loaded as a module into this process."""

import os
import sys

from .answers import download_options, format_answer, title_answer
from .cache import Cache
from .common import query_formats, query_title, write_out


class Loaded:
    """yt-dlp loaded into this process, with the cache of this launcher."""

    def __init__(self, yt_dlp, folder, stamp):
        self.yt_dlp = yt_dlp
        self.folder = folder
        self.stamp = stamp
        self.made = {}  # unused YoutubeDLs made ahead, by their options
        self.made_env = None
        self.warm_ydl = None  # the helper's, for warming up
        self.held = {}  # address -> its cache lock, taken before the tool was loaded

    @staticmethod
    def environment():
        """The environment that counts when a YoutubeDL is made (proxies,
        folders): all of it but the shell's last command."""
        return {k: v for k, v in os.environ.items() if k != "_"}

    def make_ahead(self):
        """Makes the YoutubeDLs of the two queries ahead of time, for workers
        forked later that run with the same environment."""
        for args, capture in ((query_title(), False), (query_formats(), True)):
            self.made[tuple(args)] = self.tool(args + ["--", "http://example.invalid/"], capture)
        self.made_env = self.environment()

    def cache(self, url):
        return Cache(self.folder, self.stamp, url) if self.folder else None

    def tool(self, args, capture=False):
        """A YoutubeDL with the options of the command line `args`; with
        `capture`, what it writes to standard output is kept in a buffer."""
        ahead = self.made.pop(tuple(args[:-2]), None)
        if ahead is not None and args[-2] == "--" and self.made_env == self.environment():
            return ahead
        params = self.yt_dlp.parse_options(args).ydl_opts
        if not capture:
            return self.yt_dlp.YoutubeDL(params), None
        import io
        buffer, saved = io.StringIO(), sys.stdout
        sys.stdout = buffer  # the tool takes its output file when it is made
        try:
            return self.yt_dlp.YoutubeDL(params), buffer
        finally:
            sys.stdout = saved

    def extracted(self, ydl, url):
        """The tool's information about `url` before its formats are chosen,
        extracted by the first run that asks and kept for the others."""
        cache = self.cache(url)
        lock = self.held.pop(url, None)  # taken before the tool was loaded
        try:
            info = cache.fresh() if cache else None
            if info is not None:
                return info
            lock = lock or (cache.lock() if cache else None)
            if lock is None:
                return self.extract(ydl, url)
            info = cache.fresh()  # the run that held the lock kept it
            if info is not None:
                return info
            info = self.extract(ydl, url)
            if info.get("_type", "video") != "video":
                return info  # a playlist or a redirect is resolved while processed: not kept
            info = ydl.sanitize_info(info, remove_private_keys=True)
            cache.keep(info)
            return info
        finally:
            if lock is not None:
                os.close(lock)

    def extract(self, ydl, url):
        info = ydl.extract_info(url, download=False, process=False)
        if info is None:  # the tool has reported why
            raise self.yt_dlp.utils.DownloadError("extraction failed")
        return info

    def guarded(self, ydl, work):
        """Runs work(); the tool's errors are reported the tool's way and end
        in exit code 1."""
        utils = self.yt_dlp.utils
        try:
            return work()
        except utils.DownloadError:
            return 1  # already reported
        except KeyboardInterrupt:
            sys.stderr.write("\nERROR: Interrupted by user\n")
            return 1
        except Exception as e:  # noqa: BLE001 - the tool's own failures, the network's
            try:
                ydl.report_error(str(e) or type(e).__name__)
            except utils.DownloadError:
                pass
            return 1

    def get_title(self, url, want_title, want_duration):
        ydl, _ = self.tool(query_title() + ["--", url])

        def work():
            info = ydl.process_ie_result(self.extracted(ydl, url), download=False)
            while isinstance(info, dict) and info.get("_type") == "playlist" and info.get("entries"):
                info = info["entries"][0]  # the video the tool would have printed
            write_out(title_answer(info or {}, want_title, want_duration))
            return 0
        return self.guarded(ydl, work)

    def list_formats(self, url):
        ydl, output = self.tool(query_formats() + ["--", url], capture=True)

        def work():
            ydl.process_ie_result(self.extracted(ydl, url), download=False)
            write_out(format_answer(output.getvalue()))
            return 0
        return self.guarded(ydl, work)

    def download(self, url, path, fmt):
        args = download_options(url, path, fmt)
        url = args[-1]
        ydl, _ = self.tool(args)
        cache = self.cache(url)

        def work():
            with ydl:
                if cache is not None and cache.fresh() is not None:
                    try:
                        # Falls back to the address when the kept formats fail.
                        return ydl.download_with_info_file(cache.path)
                    except OSError:
                        pass  # pruned meanwhile
                return ydl.download([url])
        return self.guarded(ydl, work)

