#!/usr/bin/env bash
# Installs, builds and runs every test: once in the default build, once more under
# AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

for preset in default asan; do
  echo "=== $preset: configure and build"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  echo "=== $preset: test"
  ctest --preset "$preset"
done
