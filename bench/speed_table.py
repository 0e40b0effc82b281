#!/usr/bin/env python3
"""Runs the transfer benchmark several times and prints the README's speed
table: per configuration the median time on 1 and 2 threads, the 2-thread
time against memcpy of 6 MiB measured in the same run, against the default
transfer of the same model and depth, and the gain from the second thread.

    bench/speed_table.py build-bench/bin/quorin_bench [--runs 5] [--filter REGEX] [--env QUORIN_SIMD=avx2]
    bench/speed_table.py build-bench/bin/quorin_bench --hosts

With --hosts it prints the table of busy hosts and many cameras instead:
K5C transfers while other threads or processes keep the cores busy,
against the idle transfer on one thread, with the fair share of the cores
beside it; and frames per second of four cameras together against one.
Under Wine give the runner first: --runner wine.

Each run is one process; within it every benchmark reports the median of
its repetitions, and the table takes the median over the runs of the
ratios (times vary by a fifth between runs on a shared machine, ratios to
the memcpy of the same run much less).
"""
import argparse
import json
import os
import statistics
import subprocess
import sys


def run_once(command, pattern, repetitions, env):
    out = subprocess.run(
        command + [ f"--benchmark_filter={pattern}", f"--benchmark_repetitions={repetitions}",
         "--benchmark_report_aggregates_only=true", "--benchmark_format=json", "--benchmark_min_time=0.05"],
        check=True, capture_output=True, text=True, env=env).stdout
    times = {}
    for b in json.loads(out)["benchmarks"]:
        if b.get("aggregate_name") != "median":
            continue
        name = b["run_name"]
        scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0}[b["time_unit"]]
        times[name] = (b["real_time"] if "real_time" in b else b["cpu_time"]) * scale
    return times


def median_over(runs, f):
    vals = [v for v in (f(r) for r in runs) if v is not None]
    return statistics.median(vals) if vals else None


def hosts_table(runs):
    def t(r, name):
        for k, v in r.items():
            if k.startswith(name + "/"):
                return v
        return None

    idle1 = median_over(runs, lambda r: t(r, "BM_Idle/1"))
    idle = median_over(runs, lambda r: t(r, "BM_Idle/0"))
    memcpy = median_over(runs, lambda r: r.get("BM_Memcpy6MiB"))
    print(f"memcpy 6 MiB {memcpy:.3f} ms; K5C 8-bit idle: {idle1:.3f} ms on one thread, "
          f"{idle:.3f} ms on the team (medians of {len(runs)} runs)\n")
    print("| host | K5C 8-bit | ÷ idle on one thread | fair share |")
    print("|---|---|---|---|")
    cores = os.cpu_count() or 2
    for kind, label in (("Threads", "threads of the host"), ("Processes", "other processes")):
        for load in ("Spinning", "Copying"):
            for n in (2, 4):
                name = f"BM_Busy{kind}{load}/{n}"
                v = median_over(runs, lambda r: t(r, name))
                if v is None:
                    continue
                ratio = median_over(runs, lambda r: t(r, name) / t(r, "BM_Idle/1") if t(r, name) else None)
                fair = max(1.0, (n + 1) / cores)
                print(f"| {n} {label} {load.lower()} | {v:.3f} ms | {ratio:.2f}× | {fair:.2f}× |")
    one = median_over(runs, lambda r: t(r, "BM_ManyCameras/1"))
    four = median_over(runs, lambda r: t(r, "BM_ManyCameras/4"))
    share = median_over(runs, lambda r: t(r, "BM_ManyCameras/1") / t(r, "BM_ManyCameras/4")
                        if t(r, "BM_ManyCameras/4") else None)
    if one and four:
        print(f"\nMany cameras: one camera {1000 / one:.0f} frames/s, four cameras from four host threads "
              f"{1000 / four:.0f} frames/s together ({100 * share:.0f} % of one camera's rate)")


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("binary")
    ap.add_argument("--runs", type=int, default=5)
    ap.add_argument("--repetitions", type=int, default=9)
    ap.add_argument("--filter", default="")
    ap.add_argument("--env", action="append", default=[])
    ap.add_argument("--hosts", action="store_true")
    ap.add_argument("--runner", default="")
    a = ap.parse_args()
    command = a.runner.split() + [a.binary]
    env = dict(os.environ)
    for kv in a.env:
        k, v = kv.split("=", 1)
        env[k] = v
    if a.hosts:
        pattern = "BM_Memcpy6MiB|BM_Busy|BM_Idle|BM_ManyCameras"
    else:
        pattern = "BM_Memcpy6MiB|BM_Transfer/" + (f".*({a.filter})" if a.filter else "")
    runs = []
    for i in range(a.runs):
        runs.append(run_once(command, pattern, a.repetitions, env))
        print(f"run {i + 1} of {a.runs} done", file=sys.stderr)
    if a.hosts:
        hosts_table(runs)
        return

    configs = []
    for name in runs[0]:
        if name.startswith("BM_Transfer/"):
            c = name.split("/")[1]
            if c not in configs:
                configs.append(c)

    def median_of(f):
        vals = [v for v in (f(r) for r in runs) if v is not None]
        return statistics.median(vals) if vals else None

    def t(r, c, th):
        return r.get(f"BM_Transfer/{c}/{th}/real_time")

    def default_of(c):
        model, bits = c.split("_")[:2]
        return f"{model}_{bits}"

    memcpy = median_of(lambda r: r.get("BM_Memcpy6MiB"))
    print(f"memcpy 6 MiB: {memcpy:.3f} ms (median of {a.runs} runs)\n")
    print("| configuration | 1 thread | 2 threads | ÷ memcpy | ÷ default | 1 → 2 threads |")
    print("|---|---|---|---|---|---|")
    for c in configs:
        one = median_of(lambda r: t(r, c, 1))
        two = median_of(lambda r: t(r, c, 2))
        ratio = median_of(lambda r: t(r, c, 2) / r["BM_Memcpy6MiB"] if t(r, c, 2) else None)
        d = default_of(c)
        rel = median_of(lambda r: t(r, c, 2) / t(r, d, 2) if t(r, c, 2) and t(r, d, 2) else None)
        gain = median_of(lambda r: t(r, c, 1) / t(r, c, 2) if t(r, c, 1) and t(r, c, 2) else None)
        fmt = lambda v, s="{:.3f} ms": s.format(v) if v is not None else "–"
        print(f"| {c} | {fmt(one)} | {fmt(two)} | {fmt(ratio, '{:.2f}×')} | "
              f"{fmt(rel, '{:.2f}×') if c != d else ''} | {fmt(gain, '{:.2f}×')} |")


if __name__ == "__main__":
    main()
