#!/usr/bin/env bash
# The demo for a machine without a display: a private X server with a window manager and a small
# scene (a few windows, a moving pointer, clicks through XTEST), recorded for about five seconds
# by tavelquiston-cli. Prints where the movie and its metadata are, and a one-line summary.
# Usage: scripts/demo.sh [output folder]   (build first: scripts/build.sh)
set -euo pipefail
cd "$(dirname "$0")/.."
cli=build/src/cli/tavelquiston-cli
out=${1:-$PWD/demo-output}
seconds=5
mkdir -p "$out"
[ -x "$cli" ] || { echo "❌ $cli is missing: run scripts/build.sh first" >&2; exit 1; }

pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
}
trap cleanup EXIT

# A free display, chosen by the server itself.
display_file=$(mktemp)
Xvfb -displayfd 3 -noreset -nolisten tcp -screen 0 1280x720x24 3>"$display_file" 2>/dev/null &
pids+=($!)
for _ in $(seq 50); do [ -s "$display_file" ] && break; sleep 0.1; done
[ -s "$display_file" ] || { echo "❌ Xvfb did not start" >&2; exit 1; }
export DISPLAY=":$(tr -d '[:space:]' <"$display_file")"
rm -f "$display_file"
export DBUS_SESSION_BUS_ADDRESS=disabled:
echo "🖥️ Demo display $DISPLAY (1280x720)"

openbox --sm-disable >/dev/null 2>&1 &
pids+=($!)
sleep 0.5
xmessage -geometry 420x120+80+80 -name demo-one "tavelquiston demo: a window to look at" >/dev/null 2>&1 &
pids+=($!)
xmessage -geometry 380x140+620+300 -name demo-two "Another window, clicked during the recording" >/dev/null 2>&1 &
pids+=($!)
sleep 0.5

# The pointer wanders and clicks while the recording runs.
(
  sleep 1
  for step in $(seq 0 40); do
    xdotool mousemove $((100 + step * 25)) $((150 + (step % 10) * 30))
    sleep 0.05
  done
  xdotool mousemove 800 370 click 1
  sleep 0.6
  xdotool mousemove 250 140 click 1
  sleep 0.6
  xdotool mousemove 900 400 click 1
) &
pids+=($!)

before=$(date +%s)
"$cli" record --mode screen --duration "$seconds" --show-cursor --codec h264 --output "$out"
movie=$(ls -t "$out"/Recording\ at\ *.mov "$out"/Recording\ at\ *.mp4 2>/dev/null | head -n 1 || true)
[ -n "$movie" ] || { echo "❌ No recording was written to $out" >&2; exit 1; }
name=$(basename "$movie")
metadata="$out/.${name%.*}.metadata.json"

duration=$(ffprobe -v error -show_entries format=duration -of default=nw=1:nk=1 "$movie")
frames=$(ffprobe -v error -count_packets -select_streams v:0 -show_entries stream=nb_read_packets \
  -of default=nw=1:nk=1 "$movie")
clicks=0
[ -f "$metadata" ] && clicks=$(grep -c '"clickType"' "$metadata" || true)
echo "🎬 Movie: $movie"
echo "📄 Metadata: $metadata"
printf '✅ Recorded %.2f s, %s frames, %s clicks (in %s s)\n' "$duration" "$frames" "$clicks" \
  "$(($(date +%s) - before))"
