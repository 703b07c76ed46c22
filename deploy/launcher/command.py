"""The launcher's command line: the few command shapes of the program."""

import sys

USAGE = """usage:
  run --get-title [--get-duration] URL
  run --get-duration URL
  run --list-formats URL
  run URL -o PATH --format N
  run --update
  run --version
"""


def fail_usage():
    sys.stderr.write(USAGE)
    sys.exit(2)


def parse(argv):
    """The command of a command line: (name, arguments), or usage."""
    if not argv:
        fail_usage()
    # Download: URL -o PATH --format N.  Checked first: the address comes
    # first and is an address even when it starts with "-".
    if len(argv) == 5 and argv[1] in ("-o", "--output") and argv[3] in ("--format", "-f"):
        url, path, fmt = argv[0], argv[2], argv[4]
        if not url or not path or not (fmt.isascii() and fmt.isdigit()):
            fail_usage()
        return "download", (url, path, fmt)
    first = argv[0]
    if first in ("--get-title", "--get-duration"):
        flags, url = argv[:-1], argv[-1]
        if (len(argv) < 2 or len(flags) > 2 or len(set(flags)) != len(flags)
                or not set(flags) <= {"--get-title", "--get-duration"} or not url):
            fail_usage()
        return "get_title", (url, "--get-title" in flags, "--get-duration" in flags)
    if first in ("--list-formats", "-F") and len(argv) == 2 and argv[1]:
        return "list_formats", (argv[1],)
    if first in ("--update", "-U") and len(argv) == 1:
        return "update", ()
    if first == "--version" and len(argv) == 1:
        return "version", ()
    fail_usage()


def run_loaded(loaded, argv):
    name, args = parse(argv)
    return getattr(loaded, name)(*args)

