#!/usr/bin/env bash
# Installs the built library into a scratch prefix, then builds a host program
# against that copy twice, through pkg-config and through the CMake package,
# and runs both builds. Usage: install_test.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
libdir=$(ls -d "$work"/prefix/lib*/pkgconfig | head -n 1)

export PKG_CONFIG_PATH=$libdir
g++ -std=c++17 -o "$work/host-pc" "$source/tests/integration/host/host.cpp" $(pkg-config --cflags --libs qzlib)
"$work/host-pc"

cmake -S "$source/tests/integration/host" -B "$work/host-build" -G Ninja \
      -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/host-build" >/dev/null
"$work/host-build/qzhost"
