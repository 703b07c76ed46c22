#!/bin/sh
# A Wayland desktop of the tests' own, for the user this runs as: PipeWire
# and WirePlumber, a headless sway of 1440 x 900, and the desktop portal
# with its wlroots backend set to share that output without asking. Runs
# the command given inside it, with WAYLAND_DISPLAY set, and exits with its
# status. Meant to run under dbus-run-session and the session reaper
# (wayland-run.sh puts it there). $SESSION_DIR is a folder of this user's.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
: "${SESSION_DIR:?}"
export XDG_RUNTIME_DIR="$SESSION_DIR/runtime" HOME="$SESSION_DIR/home"
export XDG_CONFIG_HOME="$SESSION_DIR/config" XDG_DATA_HOME="$SESSION_DIR/data" XDG_CACHE_HOME="$SESSION_DIR/cache"
export XDG_STATE_HOME="$SESSION_DIR/state" XDG_CURRENT_DESKTOP=sway XDG_SESSION_TYPE=wayland
mkdir -p "$XDG_RUNTIME_DIR" "$HOME" "$XDG_CONFIG_HOME/xdg-desktop-portal-wlr" "$XDG_DATA_HOME" "$XDG_CACHE_HOME" \
    "$XDG_STATE_HOME"
chmod 700 "$XDG_RUNTIME_DIR"
unset DISPLAY WAYLAND_DISPLAY
log="$SESSION_DIR/session.log"

# Waits up to 60 s (on a busy machine) for a condition; fails the session when it never holds.
await() {
    what=$1
    shift
    i=0
    until "$@" >/dev/null 2>&1; do
        i=$((i + 1))
        if [ $i -ge 600 ]; then
            echo "session: $what did not come up; its log:" >&2
            tail -n 40 "$log" >&2
            exit 1
        fi
        sleep 0.1
    done
}
onBus() {
    dbus-send --session --print-reply --dest=org.freedesktop.DBus / org.freedesktop.DBus.NameHasOwner "string:$1" |
        grep -q 'boolean true'
}

pipewire >>"$log" 2>&1 &
await "PipeWire" test -S "$XDG_RUNTIME_DIR/pipewire-0"
wireplumber >>"$log" 2>&1 &

cat >"$XDG_CONFIG_HOME/sway.conf" <<CONF
output HEADLESS-1 mode 1440x900 position 0 0
default_border none
default_floating_border none
xwayland disable
seat * hide_cursor 0
CONF
WLR_BACKENDS=headless WLR_RENDERER=pixman WLR_LIBINPUT_NO_DEVICES=1 sway -c "$XDG_CONFIG_HOME/sway.conf" >>"$log" 2>&1 &
await "sway" sh -c 'ls "$XDG_RUNTIME_DIR"/wayland-* | grep -v lock'
# The whole path: a test moves XDG_RUNTIME_DIR for a sound server of its own.
export WAYLAND_DISPLAY=$(ls "$XDG_RUNTIME_DIR"/wayland-* | grep -v lock | head -n 1)
export SWAYSOCK=$(ls "$XDG_RUNTIME_DIR"/sway-ipc.* | head -n 1)

cat >"$XDG_CONFIG_HOME/xdg-desktop-portal-wlr/config" <<CONF
[screencast]
output_name=HEADLESS-1
chooser_type=none
max_fps=30
CONF
backend_env=
if [ -n "${SESSION_PRELOAD:-}" ]; then
    backend_env="LD_PRELOAD=$SESSION_PRELOAD"
fi
env $backend_env /usr/libexec/xdg-desktop-portal-wlr -l DEBUG -c "$XDG_CONFIG_HOME/xdg-desktop-portal-wlr/config" \
    >>"$log" 2>&1 &
await "the portal's wlroots backend" onBus org.freedesktop.impl.portal.desktop.wlr
/usr/libexec/xdg-desktop-portal -r >>"$log" 2>&1 &
await "the desktop portal" onBus org.freedesktop.portal.Desktop

"$@"
