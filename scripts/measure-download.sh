#!/usr/bin/env bash
# Frames per second of `quorin download` into each kind of output, against
# the transfers alone (--transfer-only) in the same conditions: a virtual
# K5C (or the camera in $QUORIN_CAMERA), 1024 x 1024, 8 bits unless BITS is
# set. Prints the median over RUNS runs (default 3) of each, and the write
# speed of the output folder's disk (dd with fdatasync) for comparison.
# Usage: scripts/measure-download.sh BUILD_DIR [OUTPUT_DIR]
set -euo pipefail
tool=$1/bin/quorin
out=${2:-$(mktemp -d)}
runs=${RUNS:-3}
frames=${FRAMES:-200}
bits=${BITS:-8}
mkdir -p "$out"
export XDG_CONFIG_HOME=$out/config XDG_DATA_HOME=$out/data

median() { sort -n | awk '{v[NR] = $1} END {print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2}'; }
fps() { sed -E 's/.*"frames_per_second": ([0-9.]+).*/\1/'; }

measure() { # name, count, download arguments...
  local name=$1 count=$2
  shift 2
  for _ in $(seq "$runs"); do
    rm -rf "$out/run"
    mkdir -p "$out/run"
    (cd "$out/run" && "$tool" download --frames "1-$count" --bits "$bits" --json "$@" | fps)
  done | median | { read -r m; printf '%-22s %8.1f fps\n' "$name" "$m"; echo "$m" > "$out/$name.fps"; }
}

measure transfers "$frames" --transfer-only
measure hdf5 "$frames" -o rec.h5
measure tiff-pages "$frames" -o rec.tif
measure tiff-files "$frames" -o f_%05d.tif
measure png-files "$((frames / 4))" -o f_%05d.png
rm -rf "$out/run"
for name in hdf5 tiff-pages tiff-files png-files; do
  awk -v n="$name" -v a="$(cat "$out/$name.fps")" -v b="$(cat "$out/transfers.fps")" \
    'BEGIN {printf "%-22s %7.0f %% of the transfers alone\n", n, 100 * a / b}'
done
disk=$(dd if=/dev/zero of="$out/dd.bin" bs=4M count=128 conv=fdatasync 2>&1 | tail -n 1)
rm -f "$out/dd.bin"
echo "disk: $disk"
