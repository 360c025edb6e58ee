#!/usr/bin/env bash
# Installs the Debian 12 packages needed to build, test and benchmark ole. Safe to run again: it asks apt
# for nothing when every package is already installed.
set -euo pipefail

# One package per line; add what a new family needs here.
PACKAGES=(
    cmake
    ninja-build
    g++
    pkg-config
    uuid-dev
    zlib1g-dev
    libutfcpp-dev
    libgtest-dev
    libgmock-dev
    libbenchmark-dev
    libboost-dev
    libavutil-dev
    libcli11-dev
    liburing-dev
    nlohmann-json3-dev
    gcovr
    clang
    clang-format
    doxygen
    help2man
    man-db
    dpkg-dev
    file
    python3
)

missing=()
for package in "${PACKAGES[@]}"; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
    if [[ "$status" != installed ]]; then
        missing+=("$package")
    fi
done

if ((${#missing[@]} == 0)); then
    echo "setup: all ${#PACKAGES[@]} packages present"
    exit 0
fi

echo "setup: installing ${missing[*]}"
# sudo resets the environment, so the non-interactive setting travels through env.
apt=(env DEBIAN_FRONTEND=noninteractive apt-get)
if [[ $(id -u) -ne 0 ]]; then
    apt=(sudo "${apt[@]}")
fi
"${apt[@]}" update
"${apt[@]}" install -y --no-install-recommends "${missing[@]}"
