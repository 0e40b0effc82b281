#!/usr/bin/env bash
# Builds and runs every test: the Linux build (with the tool, the Python
# binding, the GStreamer element and its pipelines under Xvfb), an
# AddressSanitizer + UndefinedBehaviorSanitizer build, a ThreadSanitizer
# build, the fuzz targets for a bounded time each,
# and the Windows DLL under Wine.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/ensure-packages.sh cmake ninja-build g++ googletest libgtest-dev \
  g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine wine64 \
  libpng-dev libtiff-dev libcli11-dev libhdf5-dev pkg-config python3 python3-numpy python3-pytest python3-h5py \
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev gstreamer1.0-tools gstreamer1.0-plugins-base \
  gstreamer1.0-plugins-good gstreamer1.0-x python3-gi gir1.2-gstreamer-1.0 gir1.2-gst-plugins-base-1.0 \
  xvfb x11-apps imagemagick clang libclang-rt-14-dev

jobs=$(nproc)
passed=0
failed=0
broken=0
run_suite() { # name, build dir, cmake arguments...
  local name=$1 dir=$2
  shift 2
  echo "=== $name"
  if ! cmake -S . -B "$dir" -G Ninja -DQUORIN_BUILD_TESTS=ON "$@" >/dev/null || ! cmake --build "$dir" -j "$jobs"; then
    echo "=== $name: build failed"
    broken=$((broken + 1))
    return
  fi
  local log="$dir/ctest.log"
  (cd "$dir" && ctest --output-on-failure -j "$jobs") 2>&1 | tee "$log" || true
  local line total bad
  line=$(grep -E 'tests passed, [0-9]+ tests? failed out of [0-9]+' "$log" | tail -n 1 || true)
  if [ -z "$line" ]; then
    broken=$((broken + 1))
    return
  fi
  bad=$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\1/' <<<"$line")
  total=$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\2/' <<<"$line")
  passed=$((passed + total - bad))
  failed=$((failed + bad))
}

run_suite "Linux" build -DCMAKE_BUILD_TYPE=Release
run_suite "Linux, AddressSanitizer + UndefinedBehaviorSanitizer" build-asan \
  -DCMAKE_BUILD_TYPE=Debug -DQUORIN_SANITIZE=ON
run_suite "Linux, ThreadSanitizer" build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUORIN_TSAN=ON

# The fuzz targets, each for a bounded time on its corpus (clang).
run_suite "Fuzz targets" build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang \
  -DCMAKE_CXX_COMPILER=clang++ -DQUORIN_FUZZ=ON -DQUORIN_BUILD_TESTS=OFF -DQUORIN_BUILD_GST=OFF

# Wine keeps its own prefix inside the build tree and stays quiet.
export WINEPREFIX="$PWD/build-win/wineprefix" WINEDEBUG=-all
mkdir -p build-win
[ -d "$WINEPREFIX" ] || wineboot --init >/dev/null 2>&1 || true
run_suite "Windows DLL under Wine" build-win -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake

[ "$broken" -eq 0 ] || echo "$broken suite(s) did not build or run"
echo "all: $passed passed, $failed failed"
[ "$failed" -eq 0 ] && [ "$broken" -eq 0 ]
