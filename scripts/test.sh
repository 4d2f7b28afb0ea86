#!/usr/bin/env bash
# Installs, builds and runs every test: once in the default build (then the installed
# package, from outside the tree), once more under AddressSanitizer and
# UndefinedBehaviorSanitizer; the tests that run threads once more under ThreadSanitizer.
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

echo "=== tsan: configure and build the threaded tests"
cmake --preset tsan >/dev/null
cmake --build --preset tsan
echo "=== tsan: test"
# ThreadSanitizer needs a fixed memory layout, which a kernel with high mmap randomisation
# breaks; without randomisation (inherited by the command the tests start) it always holds.
if setarch "$(uname -m)" -R true 2>/dev/null; then
  setarch "$(uname -m)" -R ctest --preset tsan
else
  ctest --preset tsan
fi
