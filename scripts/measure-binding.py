#!/usr/bin/python3
"""Time of the binding's grab() and download() per frame against the
library's own transfer called through ctypes into the same array, on
virtual K5 and K5C cameras at 1024 x 1024, 8 and 16 bits.

Each run times FRAMES calls of each kind with time.perf_counter and keeps
their median (download() and frames() of FRAMES frames are timed whole,
playback entered and left included, into arrays made before); the table
shows the median over RUNS runs and the ratio to the library's transfer.
Usage (from a build): QUORIN_LIBRARY_DIR=build/bin PYTHONPATH=python \\
    scripts/measure-binding.py [FRAMES] [RUNS]
"""

import ctypes
import statistics
import sys
import tempfile
import os
import time

import numpy as np

import quorin

FRAMES = int(sys.argv[1]) if len(sys.argv) > 1 else 200
RUNS = int(sys.argv[2]) if len(sys.argv) > 2 else 5


def per_call(work, count):
    times = []
    for i in range(count):
        t0 = time.perf_counter()
        work(i)
        times.append(time.perf_counter() - t0)
    return statistics.median(times)


def measure(cam, bits):
    dll, dev, err = cam.library.dll, cam.device_number, ctypes.c_int32(0)
    buf = cam.grab(bits=bits)
    out = {}

    def library_live(i):
        dll.DEV_TransferLiveImage(dev, 0, bits, buf.ctypes.data, ctypes.byref(err))

    out["grab: library"] = per_call(library_live, FRAMES)
    out["grab(out=)"] = per_call(lambda i: cam.grab(bits=bits, out=buf), FRAMES)
    out["grab()"] = per_call(lambda i: cam.grab(bits=bits), FRAMES)
    frames = list(range(1, FRAMES + 1))
    with cam.playback():
        cam.transfer_recorded(1, bits=bits)  # reads the recorded area, as download does

        def library_memory(i):
            dll.DEV_TransferMemImage(dev, 0, frames[i], bits, buf.ctypes.data, ctypes.byref(err))

        per_call(library_memory, FRAMES)  # the virtual camera renders its recorded frames once
        out["recorded: library"] = per_call(library_memory, FRAMES)
        block = cam.download(frames, bits=bits)

        def library_block(i):  # as download() fills its result: a frame after the other
            dll.DEV_TransferMemImage(dev, 0, frames[i], bits, block[i].ctypes.data, ctypes.byref(err))

        out["recorded into a block: library"] = per_call(library_block, FRAMES)
    t0 = time.perf_counter()
    cam.download(frames, bits=bits, out=block)
    out["download()"] = (time.perf_counter() - t0) / FRAMES
    t0 = time.perf_counter()
    for _ in cam.frames(frames, bits=bits, out=buf):
        pass
    out["frames()"] = (time.perf_counter() - t0) / FRAMES
    return out


def main():
    os.environ.setdefault("XDG_CONFIG_HOME", tempfile.mkdtemp())
    os.environ.setdefault("XDG_DATA_HOME", os.environ["XDG_CONFIG_HOME"])
    rows = {}
    for model in ("k5", "k5c"):
        with quorin.open(virtual=model) as cam:
            for bits in (8, 16):
                for _ in range(20):
                    cam.grab(bits=bits)  # the virtual camera renders its live frames once
                runs = [measure(cam, bits) for _ in range(RUNS)]
                rows[(model, bits)] = {k: statistics.median(r[k] for r in runs) for k in runs[0]}
    print("| camera | library live | grab(out=) | grab() | library recorded | frames(out=) "
          "| library into a block | download(out=) |")
    print("|---|---|---|---|---|---|---|---|")
    for (model, bits), r in rows.items():
        live, mem, block = r["grab: library"], r["recorded: library"], r["recorded into a block: library"]
        print("| %s %d-bit | %.3f ms | %.3f ms (%.2fx) | %.3f ms (%.2fx) | %.3f ms | %.3f ms (%.2fx) "
              "| %.3f ms | %.3f ms (%.2fx) |" % (
                  model.upper(), bits, live * 1e3, r["grab(out=)"] * 1e3, r["grab(out=)"] / live,
                  r["grab()"] * 1e3, r["grab()"] / live, mem * 1e3, r["frames()"] * 1e3, r["frames()"] / mem,
                  block * 1e3, r["download()"] * 1e3, r["download()"] / block))


if __name__ == "__main__":
    main()
