#!/usr/bin/env bash
# Installs the default build into a temporary prefix, builds a program outside the tree
# against it twice (CMake package, then pkg-config), runs it on a real picture and compares
# its output with the installed command's; then builds the Debian packages and checks that
# they depend on the libraries the binaries link.
# Usage: scripts/package-test.sh [build-dir]   (default build/, already built)
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(realpath "${1:-build}")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
vexa=$prefix/bin/vexa
"$vexa" convert assets/chelsea.png --to-format nv12 -o "$work/in.nv12"
"$vexa" resize "$work/in.nv12" --size 450x300 --to 224x150! -o "$work/expected.nv12"

echo "=== bash completion of the installed command"
completions=$(bash -c 'source "$1"; COMP_WORDS=("$2" re); COMP_CWORD=1; _vexa; echo "${COMPREPLY[*]}";
  COMP_WORDS=("$2" resize --t); COMP_CWORD=2; _vexa; echo "${COMPREPLY[*]}"' _ \
  "$prefix/share/bash-completion/completions/vexa" "$vexa")
[ "$completions" = $'resize\n--to' ] || { echo "unexpected completions: $completions"; exit 1; }

for form in cmake pkg-config; do
  echo "=== downstream build with $form"
  options=(-DCMAKE_PREFIX_PATH="$prefix")
  [ "$form" = pkg-config ] && options=(-DUSE_PKG_CONFIG=ON)
  PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name mivo.pc)") \
    cmake -S tests/package -B "$work/$form" "${options[@]}" >/dev/null
  cmake --build "$work/$form" >/dev/null
  "$work/$form/downstream" "$work/in.nv12" 450 300 "$work/$form.nv12" >/dev/null
  cmp "$work/$form.nv12" "$work/expected.nv12"
  echo "same bytes as vexa resize"
done

echo "=== find_package refuses another minor version"
if cmake -S tests/package -B "$work/version" -DCMAKE_PREFIX_PATH="$prefix" -DWANT=0.2 \
     >/dev/null 2>&1; then
  echo "version 0.2 accepted"
  exit 1
fi

echo "=== Debian packages"
(cd "$build" && cpack -G DEB -B "$work/deb" >/dev/null)
for deb in "$work"/deb/*.deb; do
  echo "$(basename "$deb"): $(dpkg-deb -f "$deb" Depends)"
done
depends=$(dpkg-deb -f "$work"/deb/mivo-vexa_*.deb Depends)
for package in libyuv0 libpng16-16 libjpeg62-turbo android-liblog libstdc++6; do
  [[ $depends == *"$package"* ]] || { echo "mivo-vexa does not depend on $package"; exit 1; }
done
dpkg-deb -c "$work"/deb/mivo-vexa_*.deb | grep -q 'man1/vexa.1' || { echo "no manual page"; exit 1; }
echo "package tests passed"
