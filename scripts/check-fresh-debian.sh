#!/usr/bin/env bash
# Installs the Debian package into a fresh Debian 12 (debootstrap, minimal
# base) and starts Vistrel the way a menu does, from the installed desktop
# entry, on a private Xvfb + openbox inside that system. Then presses the
# panic key and sends the desktop entry's "Panic" action, taking a screenshot
# after each step. Needs root and access to a Debian mirror; not part of the
# test suite (it downloads a whole base system).
#
#   scripts/check-fresh-debian.sh --deb FILE [--root DIR] [--out DIR]
#
# --root: where the base system goes (default: a new temporary folder, removed
# afterwards; an existing one is reused as it is). --out: where the
# screenshots go (default: the current folder).
set -euo pipefail

deb="" root="" out="$PWD" keep=1
while (($#)); do
  case "$1" in
  --deb) deb="$(realpath "$2")"; shift 2 ;;
  --root) root="$(realpath -m "$2")"; shift 2 ;;
  --out) out="$(realpath -m "$2")"; shift 2 ;;
  *) sed -n '2,14p' "$0" >&2; exit 2 ;;
  esac
done
[[ -f "$deb" ]] || { echo "check-fresh-debian: --deb FILE is required" >&2; exit 2; }
[[ $(id -u) -eq 0 ]] || { echo "check-fresh-debian: must run as root" >&2; exit 2; }
command -v debootstrap >/dev/null || DEBIAN_FRONTEND=noninteractive apt-get install -y -qq debootstrap
command -v import >/dev/null || DEBIAN_FRONTEND=noninteractive apt-get install -y -qq imagemagick
if [[ -z "$root" ]]; then
  root="$(mktemp -d /var/tmp/vistrel-debian12.XXXXXX)"
  keep=0
fi
mkdir -p "$out"

mounted=()
cleanup() {
  chroot "$root" pkill -x vistrel 2>/dev/null || true
  chroot "$root" pkill -x openbox 2>/dev/null || true
  chroot "$root" pkill -x Xvfb 2>/dev/null || true
  sleep 1
  for ((i = ${#mounted[@]} - 1; i >= 0; i--)); do umount "${mounted[i]}" || true; done
  ((keep)) || rm -rf --one-file-system "$root"
}
trap cleanup EXIT INT TERM

if [[ ! -x "$root/usr/bin/apt-get" ]]; then
  debootstrap --variant=minbase bookworm "$root" http://deb.debian.org/debian >"$out/debootstrap.log"
fi
mount -t proc proc "$root/proc" && mounted+=("$root/proc")
mount --bind /dev "$root/dev" && mounted+=("$root/dev")
mount --bind /dev/pts "$root/dev/pts" && mounted+=("$root/dev/pts")
mount -t tmpfs tmpfs "$root/dev/shm" && mounted+=("$root/dev/shm")
cp /etc/resolv.conf "$root/etc/"
cp "$deb" "$root/tmp/"

in_root() { chroot "$root" env HOME=/root DISPLAY=:77 XDG_RUNTIME_DIR=/tmp/rt bash -c "$1"; }
echo "== apt install ./$(basename "$deb")"
in_root "apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq /tmp/$(basename "$deb")" \
  >"$out/install.log" 2>&1 || { tail -20 "$out/install.log"; exit 1; }
# The X server and the launcher stand in for a desktop; they come after the
# package so that its own dependencies are resolved on a bare system.
in_root "DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
  xvfb openbox libglib2.0-bin xdotool" >>"$out/install.log" 2>&1

entry=/usr/share/applications/com.quorbit.vistrel.desktop
in_root "mkdir -p -m 700 /tmp/rt; (Xvfb :77 -screen 0 1600x900x24 &>/tmp/xvfb.log &); sleep 2;
  (openbox &>/tmp/openbox.log &); sleep 1; (gio launch $entry &>/tmp/vistrel.log &)"
for _ in $(seq 30); do
  in_root "xdotool search --onlyvisible --name '^Vistrel Preview$'" >/dev/null 2>&1 && break
  sleep 1
done
echo "== windows after launching $entry"
in_root 'for w in $(xdotool search --onlyvisible --name "^Vistrel"); do
  echo "$(xdotool getwindowname $w): $(xdotool getwindowgeometry $w | tail -n +2 | xargs)"; done'
# Xvfb also listens on the abstract socket, so the host's tools reach it.
DISPLAY=:77 import -window root "$out/1-launched.png"
echo "== panic key"
in_root "xdotool key ctrl+shift+h"; sleep 1
DISPLAY=:77 import -window root "$out/2-panic-key.png"
in_root "xdotool key ctrl+shift+h"; sleep 1
echo "== desktop action Panic"
in_root "timeout 20 vistrel --panic"; sleep 1
DISPLAY=:77 import -window root "$out/3-panic-action.png"
echo "== log"
in_root "cat /tmp/vistrel.log"
echo "screenshots in $out"
