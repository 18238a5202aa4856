#!/usr/bin/env bash
# Installs what the build (deps.sh build) or the tests (deps.sh test) need, when missing.
set -eu
build_packages=(cmake make python3 g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 googletest
                clang lld llvm)
# hintwick-server: Boost (Beast, Asio, JSON), SQLite, libpq, libsodium, OpenSSL and toml++.
server_packages=(libboost1.81-dev libboost-json1.81-dev libsqlite3-dev libpq-dev libsodium-dev
                 libssl-dev pkg-config libtomlplusplus-dev)
test_packages=(wine wine64 xvfb xauth xdotool x11-xkb-utils clang libclang-rt-14-dev gcovr procps
               postgresql-15 nginx-light)

packages=("${build_packages[@]}" "${server_packages[@]}")
[ "${1:-build}" = test ] && packages+=("${test_packages[@]}")

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
    missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo=sudo
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -q
$sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
