#!/usr/bin/env bash
# Installs the build into a fresh prefix and builds a small host against it
# twice, with find_package(Quorin) and with pkg-config, then runs both. Also
# checks the SONAME, the tool, the Python binding and the GStreamer plugin of
# the installed tree.
# Arguments: build folder, source folder, C compiler, 1 when the build has
# the tool.
set -euo pipefail
build=$1 src=$2 cc=$3 tool=$4
work=$build/install-check
rm -rf "$work"
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null

lib=$(find "$prefix" -name 'libquorin.so.0' | head -n 1)
[ -n "$lib" ] || { echo "libquorin.so.0 not installed"; exit 1; }
libdir=$(dirname "$lib")
objdump -p "$lib" | grep -q 'SONAME *libquorin.so.0' || { echo "no SONAME libquorin.so.0"; exit 1; }
for f in include/quorin/quorin.h include/vcam/vcam.h; do
  [ -f "$prefix/$f" ] || { echo "$f not installed"; exit 1; }
done

# With CMake.
cmake -S "$src/tests/install/consumer" -B "$work/cmake" -G Ninja -DCMAKE_C_COMPILER="$cc" \
  -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/consumer"

# With pkg-config, from a copy of the tree elsewhere: the .pc files are
# relative to their own folder.
moved=$work/moved
cp -a "$prefix" "$moved"
export PKG_CONFIG_PATH=$moved/${libdir#"$prefix"/}/pkgconfig
flags=$(pkg-config --cflags --libs quorin-vcam)
# shellcheck disable=SC2086
"$cc" -std=c99 -Wall -Wextra -Werror "$src/tests/install/consumer/consumer.c" -o "$work/consumer-pc" $flags
LD_LIBRARY_PATH=$moved/${libdir#"$prefix"/} "$work/consumer-pc"

# The tool and the binding find the installed libraries on their own.
if [ "$tool" = 1 ]; then
  "$prefix/bin/quorin" --camera virtual:k5 get resolution
fi
if [ -f "$src/python/quorin/__init__.py" ]; then
  env -u QUORIN_LIBRARY_DIR PYTHONPATH="$prefix/lib/python3/dist-packages" /usr/bin/python3 -c '
import quorin
with quorin.open(virtual="k5") as cam:
    frame = cam.grab()
    assert frame.ndim == 2 and frame.any(), frame.shape
print("python", frame.shape)'
fi
# The GStreamer plugin loads from the prefix's plugin folder and finds the
# installed libraries on its own.
plugin=$(find "$prefix" -name libgstquorin.so | head -n 1)
if [ -f "$build/gstreamer-1.0/libgstquorin.so" ]; then
  [ -n "$plugin" ] || { echo "libgstquorin.so not installed"; exit 1; }
  export GST_PLUGIN_PATH=$(dirname "$plugin") GST_REGISTRY=$work/gst-registry.bin
  inspected=$(gst-inspect-1.0 quorinsrc)
  grep -q "Filename *$plugin" <<<"$inspected" || { echo "quorinsrc not found in $plugin"; exit 1; }
  gst-launch-1.0 -q quorinsrc camera=virtual:k5 link=7 num-buffers=2 ! fakesink
fi
echo "install check passed"
