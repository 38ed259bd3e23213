#!/usr/bin/env bash
# Installs every Debian 12 package that the build, the tests, the benchmarks and the demo need.
# Idempotent: refreshes the package lists only when something is missing.
set -euo pipefail

packages=(
  # toolchain
  build-essential cmake ninja-build ccache pkg-config clang-format git
  # Qt 6 and coroutines
  qt6-base-dev qt6-base-dev-tools qt6-svg-dev qt6-multimedia-dev qcoro-qt6-dev
  libgl-dev
  # media
  libavformat-dev libavcodec-dev libavdevice-dev libavfilter-dev libavutil-dev
  libswscale-dev libswresample-dev libyuv-dev ffmpeg
  # X11, audio, JSON, formatting
  libxcb1-dev libxcb-shm0-dev libxcb-composite0-dev libxcb-damage0-dev libxcb-xfixes0-dev
  libxcb-randr0-dev libxcb-xinput-dev libxcb-xtest0-dev libxcb-image0-dev libxcb-icccm4-dev
  libxcb-ewmh-dev libxcb-res0-dev
  libpulse-dev libwebrtc-audio-processing-dev libebur128-dev nlohmann-json3-dev libfmt-dev
  # Wayland capture through PipeWire
  libpipewire-0.3-dev
  # tests and benchmarks
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  # real services started by the integration tests
  dpkg-dev xvfb openbox xdotool jq x11-xserver-utils x11-utils x11-apps trayer pulseaudio
  pulseaudio-utils dbus dbus-bin
  sox
  pipewire pipewire-bin wireplumber gstreamer1.0-pipewire gstreamer1.0-tools
  gstreamer1.0-plugins-base
  # a real wlroots desktop and its ScreenCast portal (run headless by one test)
  sway xdg-desktop-portal xdg-desktop-portal-wlr
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "✅ All ${#packages[@]} packages are installed"
  exit 0
fi

if [ "$(id -u)" -eq 0 ]; then
  sudo_cmd=()
elif command -v sudo >/dev/null 2>&1; then
  sudo_cmd=(sudo)
else
  echo "❌ Missing packages (${missing[*]}) and neither root nor sudo is available" >&2
  exit 1
fi

echo "📦 Installing ${#missing[@]} packages: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
echo "✅ Packages installed"
