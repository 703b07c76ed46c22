#!/usr/bin/env bash
# Installs, with apt, whatever Vidorra 2 needs to build, run and test on
# Debian 12. Does nothing when everything is there. Run as root (or with
# sudo available).
set -euo pipefail

packages=(
    build-essential cmake pkg-config
    qtbase5-dev qtbase5-dev-tools
    ffmpeg sox libsox-fmt-all pulseaudio pulseaudio-utils
    yt-dlp python3 gpgv gnupg
    xvfb xauth x11-utils imagemagick fonts-dejavu-core
    chromium
    firefox-esr zip
    librsvg2-bin desktop-file-utils appstream xdotool dpkg-dev file
    clang libclang-rt-14-dev
    # Recording under Wayland (the ScreenCast portal, PipeWire, GStreamer) and its test desktop.
    libqt5dbus5 qtwayland5 gstreamer1.0-tools gstreamer1.0-pipewire gstreamer1.0-plugins-base
    gstreamer1.0-plugins-good pipewire wireplumber xdg-desktop-portal xdg-desktop-portal-wlr sway dbus grim
)
# Debian's npm, unless a Node.js of another source brings its own.
command -v npm >/dev/null || packages+=(npm)

missing=()
for p in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
    [[ "$status" == "install ok installed" ]] || missing+=("$p")
done

# web-ext, which the suite runs on the Firefox add-on: the version pinned in
# package-lock.json, into node_modules (from npm's registry the first time).
npm_tools() {
    cd "$(dirname "$0")/.."
    [[ node_modules/.package-lock.json -nt package-lock.json ]] || npm ci --no-audit --no-fund --loglevel=error
    cd - >/dev/null
}

if [[ ${#missing[@]} -eq 0 ]]; then
    echo "All build, run and test dependencies are installed."
    npm_tools
    exit 0
fi

run_as_root() {
    if [[ $(id -u) -eq 0 ]]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        echo "Missing packages: ${missing[*]}" >&2
        echo "Run this script as root to install them." >&2
        exit 1
    fi
}

echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
run_as_root apt-get update -q
run_as_root apt-get install -y -q --no-install-recommends "${missing[@]}"
npm_tools
