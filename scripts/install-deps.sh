#!/usr/bin/env bash
# Installs what the project builds with, from Debian's packages. Safe to run again.
set -euo pipefail

packages=(
  build-essential cmake pkg-config g++-multilib clang-format
  libgtest-dev libgmock-dev libbenchmark-dev
  libyuv-dev libpng-dev libjpeg62-turbo-dev liblcms2-dev libcli11-dev
  android-liblog-dev android-platform-system-core-headers help2man
)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
    missing+=("$package")
done
if ((${#missing[@]})); then
  echo "installing: ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends \
    "${missing[@]}"
fi
