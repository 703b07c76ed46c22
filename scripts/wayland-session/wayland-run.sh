#!/bin/sh
# Runs a program (a test, a benchmark) inside a Wayland desktop of its own (session.sh) and
# ends that desktop with it: wayland-run.sh FOLDER PROGRAM REAPER [AID [ARG...]].
# FOLDER holds PROGRAM with the tools it finds beside itself; REAPER is the
# session reaper; AID, when given, is preloaded into the portal's wlroots
# backend (tests/real/wayland/shm-frames.c says why); the ARGs go to PROGRAM. sway refuses to
# run as root: as root, the desktop and the test run as "nobody", from a
# copy in a folder that user can read.
set -eu
folder=$1 program=$2 reaper=$3 aid=${4:-}
shift 3
[ $# = 0 ] || shift
here=$(cd "$(dirname "$0")" && pwd)
for tool in sway pipewire wireplumber dbus-run-session gst-launch-1.0 /usr/libexec/xdg-desktop-portal \
    /usr/libexec/xdg-desktop-portal-wlr; do
    if ! command -v "$tool" >/dev/null; then
        echo "wayland-run: $tool is missing (scripts/install-deps.sh installs it)" >&2
        exit 1
    fi
done

# The aid is for the backend it was written for; a newer one may share
# shared-memory frames by itself. VIDORRA_WAYLAND_NO_AID=1 runs without it.
backend=$(dpkg-query -W -f='${Version}' xdg-desktop-portal-wlr 2>/dev/null || echo unknown)
case $backend in
0.7.*) ;;
*) echo "wayland-run: xdg-desktop-portal-wlr $backend is not the 0.7 that tests/real/wayland/shm-frames.c was written" \
    "for: run with VIDORRA_WAYLAND_NO_AID=1 to see whether the test passes without it" >&2 ;;
esac
[ -z "${VIDORRA_WAYLAND_NO_AID:-}" ] || aid=

work=$(mktemp -d /tmp/vidorra-wayland.XXXXXX)
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT TERM
chmod 755 "$work"
cp -R "$folder" "$work/app"
cp "$here/session.sh" "$reaper" "$work/"
[ -z "$aid" ] || cp "$aid" "$work/"
mkdir "$work/session"
run_as=
if [ "$(id -u)" = 0 ]; then
    chown -R nobody:nogroup "$work/session"
    run_as="setpriv --reuid=nobody --regid=nogroup --clear-groups"
fi
# A sanitizer build's settings go along; its suppressions are copied where the user can read them.
lsan=${LSAN_OPTIONS:-}
supp=$(printf '%s' "$lsan" | sed -n 's/.*suppressions=\([^:]*\).*/\1/p')
if [ -n "$supp" ] && [ -f "$supp" ]; then
    cp "$supp" "$work/lsan.supp"
    lsan=$(printf '%s' "$lsan" | sed "s|suppressions=[^:]*|suppressions=$work/lsan.supp|")
fi
status=0
$run_as env -i ${ASAN_OPTIONS:+ASAN_OPTIONS=$ASAN_OPTIONS} ${lsan:+LSAN_OPTIONS=$lsan} \
    ${UBSAN_OPTIONS:+UBSAN_OPTIONS=$UBSAN_OPTIONS} PATH=/usr/local/bin:/usr/bin:/bin LANG=C.UTF-8 SESSION_DIR="$work/session" \
    SESSION_PRELOAD="${aid:+$work/$(basename "$aid")}" QT_QPA_PLATFORM=wayland \
    ${VIDORRA_LAYER_SCREENSHOT:+VIDORRA_LAYER_SCREENSHOT=$work/session/layer.png} \
    "$work/$(basename "$reaper")" dbus-run-session -- "$work/session.sh" \
    "$work/app/$(basename "$program")" "$@" || status=$?
if [ -n "${VIDORRA_LAYER_SCREENSHOT:-}" ] && [ -f "$work/session/layer.png" ]; then
    cp "$work/session/layer.png" "$VIDORRA_LAYER_SCREENSHOT"
fi
if [ $status != 0 ] && [ -f "$work/session/session.log" ]; then
    echo "wayland-run: the desktop's log, last lines:" >&2
    tail -n 30 "$work/session/session.log" >&2
fi
exit $status
