#!/usr/bin/env bash
# Installs, builds and runs every test: once in the default build (then the installed
# package, from outside the tree), once more under AddressSanitizer and
# UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

for preset in default asan; do
  echo "=== $preset: configure and build"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  echo "=== $preset: test"
  ctest --preset "$preset"
  if [ "$preset" = default ]; then
    echo "=== default: install, downstream builds, Debian packages"
    scripts/package-test.sh build
  fi
done
