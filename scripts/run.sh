#!/usr/bin/env bash
# Installs the dependencies, builds Vistrel and starts it on the user's display.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --parallel "$(nproc)"
app=build/release/src/app/vistrel
if [[ ! -x "$app" ]]; then
  echo "run: the vistrel application is not built yet in this version; the libraries and tests are."
  exit 0
fi
exec "$app" "$@"
