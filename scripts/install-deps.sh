#!/usr/bin/env bash
# Installs every Debian 12 package Vistrel needs to build, test and run.
# Idempotent: packages already installed are skipped. Uses sudo when not root.
set -euo pipefail

packages=(
  # toolchain
  build-essential cmake ninja-build pkg-config clang-format
  # Qt 6
  qt6-base-dev qt6-base-dev-tools qt6-multimedia-dev qt6-svg-dev libqt6svg6-dev
  qt6-qpa-plugins libgl-dev libxkbcommon-dev
  # cameras through Qt Multimedia's GStreamer backend (v4l2src)
  gstreamer1.0-plugins-good
  # XCB for the capture backend
  libxcb1-dev libxcb-composite0-dev libxcb-damage0-dev libxcb-xfixes0-dev
  libxcb-render0-dev libxcb-shm0-dev libxcb-randr0-dev libxcb-res0-dev
  libxcb-shape0-dev
  # test X session
  xvfb openbox xauth x11-utils x11-xserver-utils xdotool imagemagick
  # stock X clients the capture tests run as foreign applications
  x11-apps
  # the package and its desktop files: cpack's dependency scan, validators
  dpkg-dev desktop-file-utils appstream
)
# Extra packages a later step asked for (one name per line), e.g. benchmarks.
extra_file="$(dirname "$0")/extra-packages.txt"
if [[ -f "$extra_file" ]]; then
  while read -r name; do
    [[ -n "$name" && "$name" != \#* ]] && packages+=("$name")
  done <"$extra_file"
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if ((${#missing[@]} == 0)); then
  echo "install-deps: all ${#packages[@]} packages present"
  exit 0
fi

sudo=""
if [[ $(id -u) -ne 0 ]]; then
  sudo="sudo"
fi
echo "install-deps: installing ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
