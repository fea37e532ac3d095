#!/usr/bin/env bash
# Installs the dependencies, builds the sanitizer test build and runs every suite.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset asan
cmake --build --preset asan --parallel "$(nproc)"
ctest --preset asan --parallel "$(nproc)" "$@"
