#!/usr/bin/env bash
# test-install.sh BUILD_DIR: installs the build for /usr into a scratch
# DESTDIR, validates the desktop entry and the AppStream metadata, checks the
# host manifests, then starts the installed bin/vidorra2 (private HOME and XDG
# folders) on $DISPLAY and waits for its window. Every wait has a time limit.
set -euo pipefail
build=$1
id=org.vidorra2.vidorra2
fail() { echo "FAIL: $*" >&2; exit 1; }
[[ -n ${DISPLAY:-} ]] || fail "no X display (run the suite under xvfb-run)"

root=$(mktemp -d /tmp/vidorra2-install.XXXXXX)
pid=
cleanup() {
    if [[ -n $pid ]]; then kill -KILL -- "-$pid" 2>/dev/null || true; fi
    rm -rf "$root"
}
trap cleanup EXIT

DESTDIR=$root/dest timeout 120 cmake --install "$build" --prefix /usr >/dev/null || fail "cmake --install"
usr=$root/dest/usr
out=$(desktop-file-validate "$usr/share/applications/$id.desktop" 2>&1) && [[ -z $out ]] ||
    fail "desktop-file-validate: $out"
out=$(appstreamcli validate --no-net "$usr/share/metainfo/$id.metainfo.xml" 2>&1) ||
    fail "appstreamcli validate: $out"
grep -q '^[IWE]:' <<<"$out" && fail "appstreamcli validate: $out"
for size in 48x48 scalable; do
    ls "$usr/share/icons/hicolor/$size/apps/$id".* >/dev/null || fail "no $size icon"
done
for manifest in "$root/dest/etc/chromium" "$usr/lib/mozilla"; do
    grep -q '"path": "/usr/lib/vidorra2/vidorra2-sniffer-host"' "$manifest/native-messaging-hosts/org.vidorra2.sniffer.json" ||
        fail "$manifest: no manifest naming the installed host"
done
# Firefox looks in /usr/lib/mozilla only, whatever the prefix.
DESTDIR=$root/local timeout 120 cmake --install "$build" --prefix /usr/local >/dev/null || fail "cmake --install"
grep -q '"path": "/usr/local/lib/vidorra2/vidorra2-sniffer-host"' "$root/local/usr/lib/mozilla/native-messaging-hosts/org.vidorra2.sniffer.json" ||
    fail "/usr/local: no Firefox host manifest in /usr/lib/mozilla"
rm -rf "$root/local"
grep -q '"file:///usr/lib/vidorra2/vidorra2-sniffer.xpi"' "$usr/lib/vidorra2/firefox/policies.json" || fail "no Firefox policy"
for tool in run launcher/update.py launcher/yt-dlp-signing-key.asc ffmpeg7_311 ffmpeg9_311 ffplay sox/sox sniffer.ini help/index.html extension/manifest.json \
            vidorra2-sniffer.xpi testpage/index.html testpage/clip.webm vidorra2-sniffer-host vidorra2-sniff; do
    [[ -e $usr/lib/vidorra2/$tool ]] || fail "lib/vidorra2/$tool missing"
done

# The program, started through the link on the PATH, finds its folder: the
# stock settings file beside the executable sets up its data folder (with the
# save folders, which a settings file made without it lacks).
home=$root/home
mkdir -p "$home" && mkdir -m 700 "$root/run"
HOME=$home XDG_CONFIG_HOME=$home/.config XDG_DATA_HOME=$home/.local/share XDG_CACHE_HOME=$home/.cache \
    XDG_RUNTIME_DIR=$root/run QT_QPA_PLATFORM=xcb setsid "$usr/bin/vidorra2" >"$root/out.txt" 2>&1 &
pid=$!
window=$(timeout 30 xdotool search --sync --all --onlyvisible --pid "$pid" --name '^Vidorra 2( |$)' | head -n1) ||
    fail "no window within 30 s: $(cat "$root/out.txt")"
wmclass=$(xprop -id "$window" WM_CLASS | sed -n 's/.*", "\(.*\)"$/\1/p')
grep -qx "StartupWMClass=$wmclass" "$usr/share/applications/$id.desktop" || fail "WM_CLASS is '$wmclass'"
grep -q '^savepath_video=' "$home/.local/share/Vidorra 2/sniffer.ini" || fail "the stock settings file was not found"

kill -TERM "$pid"
for _ in $(seq 50); do kill -0 "$pid" 2>/dev/null || break; sleep 0.2; done
kill -0 "$pid" 2>/dev/null && fail "the program did not end within 10 s of SIGTERM"
echo "installed program started (window $window, WM_CLASS $wmclass) and ended"
