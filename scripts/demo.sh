#!/usr/bin/env bash
# Records a short scripted scene on a private X server, for machines without a display:
# Xvfb with openbox, a few windows, a pointer that moves and clicks through XTEST, and about
# five seconds recorded by tavelquiston-cli, with the system audio of a private PulseAudio that
# plays a 440 Hz tone. Prints the movie, its metadata and a summary; then records the test
# camera as a separate layer, prints the package folder, and exports the movie styled.
# Usage: scripts/demo.sh [OUTPUT-DIR]   (default: a new folder under /tmp)
set -euo pipefail
cd "$(dirname "$0")/.."
cli=build/src/cli/tavelquiston-cli
[[ -x $cli ]] || { echo "❌ $cli is missing; run scripts/build.sh first" >&2; exit 1; }
for tool in Xvfb openbox xdotool xmessage xsetroot ffprobe jq; do
  command -v "$tool" >/dev/null || { echo "❌ '$tool' is not installed; run scripts/install-deps.sh" >&2; exit 1; }
done

out=${1:-$(mktemp -d /tmp/tavelquiston-demo.XXXXXX)}
mkdir -p "$out"
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  [[ -n ${pulse_dir:-} ]] && rm -rf "$pulse_dir"
  return 0
}
trap cleanup EXIT

# A free display number: no socket and no lock file.
number=120
while [[ -e /tmp/.X11-unix/X$number || -e /tmp/.X$number-lock ]]; do number=$((number + 1)); done
export DISPLAY=:$number
unset WAYLAND_DISPLAY
Xvfb "$DISPLAY" -screen 0 1280x720x24 -nolisten tcp >/dev/null 2>&1 &
pids+=($!)
for _ in $(seq 100); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.05; done
xdpyinfo >/dev/null 2>&1 || { echo "❌ Xvfb did not start on $DISPLAY" >&2; exit 1; }
openbox >/dev/null 2>&1 &
pids+=($!)
sleep 0.5

xsetroot -solid '#2e3440'
xmessage -title Notes -bg '#ebcb8b' -geometry 360x220+120+120 "Notes: record the demo" >/dev/null 2>&1 &
pids+=($!)
xmessage -title Tasks -bg '#a3be8c' -geometry 320x200+560+180 "Tasks: click here" >/dev/null 2>&1 &
pids+=($!)
xmessage -title Status -bg '#88c0d0' -geometry 300x160+860+420 "Status: all good" >/dev/null 2>&1 &
pids+=($!)
sleep 0.8

# A private sound server with a null sink, so the recording has system audio to hear: a tone
# played into the sink for as long as the scene lasts.
audio_args=()
if command -v pulseaudio >/dev/null && command -v pacat >/dev/null && command -v ffmpeg >/dev/null; then
  pulse_dir=$(mktemp -d /tmp/tavelquiston-demo-pulse.XXXXXX)
  chmod 700 "$pulse_dir"
  env -u DISPLAY XDG_RUNTIME_DIR="$pulse_dir" HOME="$pulse_dir" pulseaudio -n --daemonize=no \
    --exit-idle-time=-1 --disallow-exit --use-pid-file=no --system=no \
    -L module-native-protocol-unix -L "module-null-sink sink_name=demo norewinds=1" >/dev/null 2>&1 &
  pids+=($!)
  export PULSE_SERVER=unix:$pulse_dir/pulse/native
  for _ in $(seq 100); do pactl info >/dev/null 2>&1 && break; sleep 0.05; done
  if pactl info >/dev/null 2>&1; then
    ffmpeg -v quiet -f lavfi -i "sine=frequency=440:sample_rate=48000:duration=9" -ac 2 -f s16le - 2>/dev/null |
      pacat --device=demo --rate=48000 --channels=2 --format=s16le --latency-msec=20 &
    pids+=($!)
    audio_args=(--system-audio)
  fi
fi

# The pointer is left out of the picture: the styled export draws its own, smoothed, from the
# recorded positions.
"$cli" record --duration 5 --fps 30 --click-to-zoom "${audio_args[@]}" --output "$out" >"$out/record.log" 2>"$out/record.err" &
recorder=$!

# The scene: the pointer glides between the windows and clicks in each.
x=100 y=100
xdotool mousemove $x $y
sleep 0.5
for target in "300 230" "700 260" "1000 480" "640 600" "300 230"; do
  set -- $target
  for step in $(seq 1 10); do
    xdotool mousemove $((x + ($1 - x) * step / 10)) $((y + ($2 - y) * step / 10))
    sleep 0.03
  done
  x=$1 y=$2
  xdotool click 1
  sleep 0.3
done

status=0
wait "$recorder" || status=$?
if [[ $status -ne 0 ]]; then
  echo "❌ The recording failed (status $status):" >&2
  cat "$out/record.err" >&2
  exit 1
fi
movie=$(tail -n 2 "$out/record.log" | head -n 1)
metadata=$(tail -n 1 "$out/record.log")
duration=$(ffprobe -v error -show_entries format=duration -of default=nw=1:nk=1 "$movie")
frames=$(ffprobe -v error -select_streams v -count_packets -show_entries stream=nb_read_packets -of default=nw=1:nk=1 "$movie")
count() { jq ".$2 // [] | length" "$1"; }
clicks=$(count "$metadata" cursorClicks)
zooms=$(count "$metadata" zoomEvents)
"$cli" analyze "$metadata" >"$out/analyze.json"
segments=$(count "$out/analyze.json" zoomSegments)
sound="no sound (no PulseAudio to play a tone into)"
if [[ ${#audio_args[@]} -gt 0 ]]; then
  audio=$(ffprobe -v error -select_streams a -show_entries stream=codec_name,sample_rate,channels -of csv=p=0 "$movie")
  if [[ -n $audio ]]; then
    IFS=, read -r codec rate channels <<<"$audio"
    sound="system audio: a 440 Hz tone, $codec $rate Hz ${channels} ch"
  else
    sound="system audio was asked for but the movie has no audio track"
  fi
fi
echo "movie:    $movie"
echo "metadata: $metadata"
printf 'summary:  %.2f s, %d frames, %d clicks and %d zoom events recorded, %d automatic zoom segments, %s\n' \
  "$duration" "$frames" "$clicks" "$zooms" "$segments" "$sound"

# The same desktop with the test camera recorded as a layer of its own: a package folder.
TAVELQUISTON_TEST_CAMERA=1 "$cli" record --duration 3 --fps 30 --camera "Test Camera" \
  --separate-layers --output "$out" >"$out/layers.log" 2>"$out/layers.err" || {
  echo "❌ The camera layer recording failed:" >&2
  cat "$out/layers.err" >&2
  exit 1
}
package=$(tail -n 2 "$out/layers.log" | head -n 1)
camera_frames=$(ffprobe -v error -select_streams v -count_packets -show_entries stream=nb_read_packets -of default=nw=1:nk=1 "$package/.camera.mov")
echo "package:  $package"
printf 'layers:   %s, camera %d frames\n' "$(cd "$package" && ls -A | tr '\n' ' ')" "$camera_frames"

# The recording made shareable: styled on a background, its automatic zoom and drawn cursor.
if ! "$cli" export "$movie" --background gradient:ocean --padding 80 \
    >"$out/export.log" 2>"$out/export.err"; then
  echo "❌ The export failed:" >&2
  cat "$out/export.err" >&2
  exit 1
fi
echo "styled:   $(tail -n 1 "$out/export.log")"
