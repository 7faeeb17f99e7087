#!/usr/bin/env bash
# Installs the built library into a scratch prefix, then builds a strict host
# program (-Wall -Wextra -Wshadow -Werror) against that copy twice, through
# pkg-config and through the CMake package, and runs both builds. Each host
# writes an activity file, which the INSTALLED retrace, started from the
# prefix with no library path set, must replay as the host's own lines.
# Usage: install_test.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
strict="-Wall -Wextra -Wshadow -Werror"

cmake --install "$build" --prefix "$work/prefix" >/dev/null
libdir=$(ls -d "$work"/prefix/lib*/pkgconfig | head -n 1)

export PKG_CONFIG_PATH=$libdir
g++ -std=c++17 $strict -o "$work/host-pc" "$source/tests/integration/host/host.cpp" \
    $(pkg-config --cflags --libs qzlib)
"$work/host-pc" "$work/host-pc.act"
# Installed beside retrace, the host finds the installed catalogue and
# converter package.
test -f "$libdir/../qzMessage.dat"
test -f "$libdir/../qzCharsets.dat"
cp "$work/host-pc" "$work/prefix/bin/host-pc"
env -u LD_LIBRARY_PATH "$work/prefix/bin/host-pc" "$work/host-bin.act" catalogue

cmake -S "$source/tests/integration/host" -B "$work/host-build" -G Ninja \
      -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/host-build" >/dev/null
"$work/host-build/qzhost" "$work/host-cmake.act"

retrace=$work/prefix/bin/retrace
version=$(env -u LD_LIBRARY_PATH "$retrace" --version)
if [ "$version" != "retrace $(pkg-config --modversion qzlib)" ]; then
    echo "installed retrace --version says '$version'" >&2
    exit 1
fi

expected='INFO main [main] installed library works, 100% sure of it
WARN main [main] checked 3 times at 2.5'
for act in "$work/host-pc.act" "$work/host-cmake.act"; do
    replayed=$(env -u LD_LIBRARY_PATH "$retrace" --pattern '%p %c{1} [%t] %m%n' "$act")
    if [ "$replayed" != "$expected" ]; then
        printf 'installed retrace replayed %s as:\n%s\n' "$act" "$replayed" >&2
        exit 1
    fi
done
echo "installed retrace ok"
