#!/usr/bin/env bash
# Pictures of every page of the real window, taken on a virtual X server:
#   tools/screenshots.sh [output folder]    (default: build/screenshots)
# Runs the tour on a fresh private home (first start with the stock settings),
# then starts the program itself a first and a second time and pictures its
# main window with ImageMagick's `import`.
set -euo pipefail
cd "$(dirname "$0")/.."
out=$(realpath -m "${1:-build/screenshots}")
mkdir -p "$out"
[[ -x build/tour/vidorra2-tour && -x build/app/vidorra2 ]] || bash scripts/build.sh

home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export HOME=$home XDG_DATA_HOME=$home/.local/share XDG_CONFIG_HOME=$home/.config
mkdir -p "$home/Documents" "$home/Desktop"

cp deploy/sniffer.ini build/tour/sniffer.ini
xvfb-run -a -s "-screen 0 1440x900x24" build/tour/vidorra2-tour "$out"

# The program itself: first start with no data folder, then a second start.
rm -rf "$XDG_DATA_HOME/Vidorra 2"
app=$(mktemp -d)
cp -a build/app/. "$app/"
cp deploy/sniffer.ini "$app/sniffer.ini"
for start in first second; do
    xvfb-run -a -s "-screen 0 1440x900x24" bash -c '
        "$1/vidorra2" >/dev/null 2>&1 &
        pid=$!
        sleep 3
        id=$(xwininfo -root -tree | awk "/\"Vidorra 2 /{print \$1; exit}")
        xwininfo -id "$id" | grep -E "Width|Height"
        import -window "$id" "$2/00-program-$3-start.png"
        kill $pid' _ "$app" "$out" "$start"
    echo "$out/00-program-$start-start.png"
done
ls "$XDG_DATA_HOME/Vidorra 2"
rm -rf "$app"
