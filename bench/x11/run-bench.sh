#!/usr/bin/env bash
# Runs the X11 capture benchmark: filtered capture against an unfiltered grab
# (ffmpeg x11grab) on the same private Xvfb + openbox session, for each screen
# size and frame rate, and prints the Markdown tables; then the discovery
# benchmark (passes every 2 s on an idle desktop of 5, 200 and 500 windows)
# on a 1920x1080 session of its own.
#
#   bench/x11/run-bench.sh [--build DIR] [--sizes "1920x1080 3840x2160"]
#                          [--fps "30 60"] [--seconds 10] [--out FILE]
#                          [--windows "5 200 500"] [--discovery-only]
#
# --build: a release build dir (default build-bench); it is configured and the
# bench targets are built there if needed. ffmpeg is installed with apt
# when missing (the capture benchmark needs it, the test suite does not).
# Sizes the X server refuses are reported and skipped. --discovery-only skips
# the capture runs.
set -euo pipefail

root="$(cd "$(dirname "$0")/../.." && pwd)"
build="$root/build-bench"
sizes="1920x1080 3840x2160"
rates="30 60"
seconds=10
out=""
windows="5 200 500"
capture=1
while (($#)); do
  case "$1" in
  --build) build="$(realpath -m "$2")"; shift 2 ;;
  --sizes) sizes="$2"; shift 2 ;;
  --fps) rates="$2"; shift 2 ;;
  --seconds) seconds="$2"; shift 2 ;;
  --out) out="$(realpath -m "$2")"; shift 2 ;;
  --windows) windows="$2"; shift 2 ;;
  --discovery-only) capture=0; shift ;;
  *) sed -n '2,16p' "$0" >&2; exit 2 ;;
  esac
done

if ((capture)) && ! command -v ffmpeg >/dev/null 2>&1; then
  sudo=""
  [[ $(id -u) -ne 0 ]] && sudo="sudo"
  echo "run-bench: installing ffmpeg" >&2
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends ffmpeg
fi

if [[ ! -f "$build/CMakeCache.txt" ]]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DVISTREL_BUILD_BENCH=ON -DVISTREL_BUILD_TESTS=OFF >&2
fi
cmake --build "$build" --target vistrel-bench-x11 vistrel-bench-x11-client \
  vistrel-bench-x11-discovery -j2 >&2
bench="$build/bench/x11/vistrel-bench-x11"
client="$build/bench/x11/vistrel-bench-x11-client"
discovery="$build/bench/x11/vistrel-bench-x11-discovery"

session=""
cleanup() {
  if [[ -n "$session" ]]; then
    "$root/scripts/x11-session.sh" stop --dir "$session" || true
    rm -rf "$session"
    session=""
  fi
}
trap cleanup EXIT INT TERM

report() {
  local cpu xvfb
  cpu="$(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ *//')"
  xvfb="$(dpkg-query -W -f='${Version}' xvfb 2>/dev/null || echo unknown)"
  local title="X11 capture"
  ((capture)) || title="X11 discovery"
  echo "### $title, $(date -u '+%Y-%m-%d %H:%M UTC')"
  echo
  local ffmpeg="no ffmpeg"
  command -v ffmpeg >/dev/null 2>&1 && ffmpeg="$(ffmpeg -version | head -1 | cut -d' ' -f1-3)"
  echo "Machine: $(nproc) cores ($cpu), Linux $(uname -r), Xvfb $xvfb, openbox, $ffmpeg."
  echo
  ((capture)) || sizes=""
  for size in $sizes; do
    session="$(mktemp -d "${TMPDIR:-/tmp}/vistrel-bench.XXXXXX")"
    if ! env_lines="$("$root/scripts/x11-session.sh" start --dir "$session" --size "$size" \
      --monitors 1)"; then
      echo "Xvfb refused a $size screen; skipped."
      echo
      cleanup
      continue
    fi
    display="$(grep '^DISPLAY=' <<<"$env_lines" | cut -d= -f2)"
    for fps in $rates; do
      "$bench" --display "$display" --server-pid "$(cat "$session/xvfb.pid")" \
        --client "$client" --seconds "$seconds" --fps "$fps" ||
        echo "Benchmark failed at $size, $fps fps."
    done
    cleanup
  done
  session="$(mktemp -d "${TMPDIR:-/tmp}/vistrel-bench.XXXXXX")"
  if env_lines="$("$root/scripts/x11-session.sh" start --dir "$session" --size 1920x1080 \
    --monitors 1)"; then
    display="$(grep '^DISPLAY=' <<<"$env_lines" | cut -d= -f2)"
    "$discovery" --display "$display" --server-pid "$(cat "$session/xvfb.pid")" \
      --client "$client" --seconds "$seconds" --windows "$windows" ||
      echo "Discovery benchmark failed."
  else
    echo "No X session for the discovery benchmark."
  fi
  cleanup
}

if [[ -n "$out" ]]; then
  report | tee "$out"
else
  report
fi
