"""The program's answers, whichever way the tool ran: title and duration
lines, the classic format table, and the tool's options of a download."""

import sys

from .common import common


def format_duration(seconds):
    """Duration the way yt-dlp writes it, but always with minutes:
    5 -> "0:05", 225 -> "3:45", 3723 -> "1:02:03"."""
    total = int(seconds)
    h, rest = divmod(total, 3600)
    m, s = divmod(rest, 60)
    if h:
        return "%d:%02d:%02d" % (h, m, s)
    return "%d:%02d" % (m, s)


def title_answer(info, want_title, want_duration):
    """The title and duration lines of the tool's information about a video."""
    lines = []
    if want_title:
        title = info.get("title")
        title = "" if title is None else str(title)
        lines.append(" ".join(title.splitlines()))
    if want_duration:
        duration = info.get("duration")
        if isinstance(duration, (int, float)) and not isinstance(duration, bool) and duration >= 0:
            lines.append(format_duration(duration))
    return "\n".join(lines) + "\n" if lines else ""


def separate_stream(line):
    return "video only" in line or "audio only" in line


def format_answer(output):
    """The tool's format listing reshaped into the classic table; lines that
    are not part of it go to standard error."""
    kept = []
    header = None
    for line in output.splitlines():
        line = line.rstrip()
        if not line.strip():
            continue
        if header is None:
            if line.split()[0] == "format":
                header = len(kept)
            elif "[" not in line:
                sys.stderr.write(line + "\n")  # not part of the table
                continue
        kept.append(line)
    if header is not None:
        rows = [i for i in range(header + 1, len(kept)) if not kept[i].lstrip().startswith("[")]
        # Separate video-only and audio-only streams are noted "DASH", as the
        # classic table did: the program offers only formats that are one
        # whole file. A lone stream (a plain audio link) stays as it is.
        combined = [i for i in rows if not separate_stream(kept[i])]
        if combined:
            for i in rows:
                if separate_stream(kept[i]) and "DASH" not in kept[i]:
                    kept[i] += " DASH " + ("video" if "video only" in kept[i] else "audio")
        best_candidates = combined or rows
        if best_candidates and not any(kept[i].split()[-1] == "(best)" for i in rows):
            kept[best_candidates[-1]] += " (best)"
    return "\n".join(kept) + "\n" if kept else ""


def literal_template(path):
    """yt-dlp reads -o as an output template: "%" starts a field, "$NAME"
    and a leading "~" are expanded.  This returns a template that names
    exactly the given path."""
    if path.startswith("~"):
        path = "./" + path
    path = path.replace("%", "%%")
    # An empty field between "$" and the rest keeps the name from expansion.
    return path.replace("$", "$%(__run_empty|)s")


def download_options(url, path, fmt):
    """The tool's arguments for a download, the address last."""
    import re
    if not re.match(r"[A-Za-z][A-Za-z0-9+.-]*://", url):
        # An address of the sniffed list keeps the scheme the browser used;
        # one reported without (an older add-on) is taken as http, and the
        # server redirects to https where it wants it.
        url = "http://" + url
    # 0 stands for a format without a numeric code (a direct media link):
    # take it if a format is really called "0", else the best single file.
    selector = "0/b/b*" if fmt == "0" else fmt
    if path == "-":
        path = "./-"  # "-" alone would mean standard output
    return common() + [
        "--newline", "--quiet", "--progress",  # progress lines only
        "--force-overwrites", "--no-mtime",
        "--format", selector,
        "--output", literal_template(path),
        "--", url,
    ]

