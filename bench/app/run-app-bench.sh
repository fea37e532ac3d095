#!/usr/bin/env bash
# Runs the whole-application benchmark: the real vistrel (output window out
# of its dock at the size Vistrel gives it, preview panel shown) in each
# filter form against ffmpeg x11grab of the same private Xvfb + openbox
# session, for each screen size and frame rate, and prints the Markdown
# tables; then, per screen size, what showing the frame without it leaving
# the X server would cost.
#
#   bench/app/run-app-bench.sh [--build DIR] [--sizes "1920x1080 3840x2160"]
#                              [--fps "30 60"] [--seconds 10] [--out FILE]
#
# --build: a release build dir (default build-bench), configured and built
# here if needed. ffmpeg is installed with apt when missing.
set -euo pipefail

root="$(cd "$(dirname "$0")/../.." && pwd)"
build="$root/build-bench"
sizes="1920x1080 3840x2160"
rates="30 60"
seconds=10
out=""
while (($#)); do
  case "$1" in
  --build) build="$(realpath -m "$2")"; shift 2 ;;
  --sizes) sizes="$2"; shift 2 ;;
  --fps) rates="$2"; shift 2 ;;
  --seconds) seconds="$2"; shift 2 ;;
  --out) out="$(realpath -m "$2")"; shift 2 ;;
  *) sed -n '2,11p' "$0" >&2; exit 2 ;;
  esac
done

if ! command -v ffmpeg >/dev/null 2>&1; then
  sudo=""
  [[ $(id -u) -ne 0 ]] && sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends ffmpeg
fi
if [[ ! -f "$build/CMakeCache.txt" ]]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DVISTREL_BUILD_BENCH=ON -DVISTREL_BUILD_TESTS=OFF >&2
fi
cmake --build "$build" --target vistrel vistrel-bench-app vistrel-bench-x11-client \
  vistrel-bench-x11-present -j2 >&2

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
  echo "### Whole application, $(date -u '+%Y-%m-%d %H:%M UTC')"
  echo
  echo "Machine: $(nproc) cores, load average $(cut -d' ' -f1-3 /proc/loadavg) at the start."
  echo
  for size in $sizes; do
    session="$(mktemp -d "${TMPDIR:-/tmp}/vistrel-app-bench.XXXXXX")"
    if ! env_lines="$("$root/scripts/x11-session.sh" start --dir "$session" --size "$size" \
      --monitors 1)"; then
      echo "Xvfb refused a $size screen; skipped."
      cleanup
      continue
    fi
    display="$(grep '^DISPLAY=' <<<"$env_lines" | cut -d= -f2)"
    for fps in $rates; do
      "$build/bench/app/vistrel-bench-app" --display "$display" \
        --server-pid "$(cat "$session/xvfb.pid")" --vistrel "$build/src/app/vistrel" \
        --client "$build/bench/x11/vistrel-bench-x11-client" --seconds "$seconds" --fps "$fps" ||
        echo "Benchmark failed at $size, $fps fps."
    done
    echo
    echo "What the frame would cost shown without leaving the X server ($size):"
    echo
    "$build/bench/x11/vistrel-bench-x11-present" --display "$display" \
      --server-pid "$(cat "$session/xvfb.pid")" || echo "Presentation benchmark failed at $size."
    echo
    cleanup
  done
}

if [[ -n "$out" ]]; then report | tee "$out"; else report; fi
