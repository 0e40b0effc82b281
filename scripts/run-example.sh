#!/usr/bin/env bash
# Builds the library and the example host, then runs the example against a
# virtual camera on each link type.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/ensure-packages.sh cmake ninja-build g++ libpng-dev libtiff-dev libcli11-dev libhdf5-dev pkg-config
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DQUORIN_BUILD_TESTS=OFF >/dev/null
cmake --build build --target quorin_example
mkdir -p build/example-output
cd build/example-output
../bin/quorin_example
echo "pictures: $PWD"
