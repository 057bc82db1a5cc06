#!/usr/bin/env bash
# Installs the Debian packages that building, testing and the demo need. Does nothing when all are
# there; otherwise needs root or sudo.
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config ccache git
  libcurl4-openssl-dev libssl-dev libexpat1-dev nlohmann-json3-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  clang lld llvm libclang-rt-14-dev
  clang-format clang-tidy codespell
  zip unzip debianutils openssl curl ca-certificates python3 strace libplist-utils binutils
)

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query --show --showformat='${Status}' "$package" 2>/dev/null || true)
  [ "$status" = "install ok installed" ] || missing+=("$package")
done
[ "${#missing[@]}" -eq 0 ] && exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || {
    echo "install-packages: these packages are missing and neither root nor sudo is at hand: ${missing[*]}" >&2
    exit 1
  }
  as_root=(sudo)
fi
echo "Installing: ${missing[*]}"
"${as_root[@]}" apt-get update --quiet=2
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install --yes --quiet=2 --no-install-recommends "${missing[@]}" >/dev/null
