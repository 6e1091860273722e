#!/usr/bin/env python3
"""Runs bench_codecs or bench_tlv and puts each task of ours beside the peer's.

Prints the median time of both and their ratio (above 1: ours is slower), one row a task and size.
Exits with 1 when a ratio exceeds the limit (not with --report-only), with 2 when nothing could be measured.
"""

import argparse
import json
import os
import statistics
import subprocess
import sys
import tempfile

OURS = "qvreader"
OPTIMISED = ("Release", "RelWithDebInfo")


def measure(program, repetitions):
    """Runs the benchmark and returns its JSON report."""
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "report.json")
        result = subprocess.run(
            [
                program,
                f"--benchmark_repetitions={repetitions}",
                "--benchmark_enable_random_interleaving=true",
                "--benchmark_out_format=json",
                f"--benchmark_out={path}",
            ],
            check=False,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.PIPE,
            text=True,
        )
        if result.returncode != 0:
            raise ValueError(f"{program} ended with {result.returncode}\n{result.stderr}")
        with open(path, encoding="utf-8") as file:
            return json.load(file)


def medians(report):
    """{(task, size): {who: median of the CPU times in nanoseconds}}"""
    times = {}
    for row in report["benchmarks"]:
        if row.get("run_type", "iteration") != "iteration":
            continue
        if row["time_unit"] != "ns":
            raise ValueError(f"{row['name']}: unexpected unit {row['time_unit']}")
        task, who, size = row["run_name"].split("/")[:3]
        times.setdefault((task, int(size)), {}).setdefault(who, []).append(row["cpu_time"])
    return {
        key: {who: statistics.median(values) for who, values in sides.items()}
        for key, sides in times.items()
    }


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("program", help="bench_codecs or bench_tlv")
    parser.add_argument("--repetitions", type=int, default=5)
    parser.add_argument("--limit", type=float, default=1.25, help="greatest ratio that passes")
    parser.add_argument("--report-only", action="store_true", help="never fail on a ratio")
    arguments = parser.parse_args()

    try:
        report = measure(arguments.program, arguments.repetitions)
        rows = medians(report)
    except (OSError, ValueError, KeyError) as error:
        print(f"compare.py: {error}", file=sys.stderr)
        return 2
    build = report["context"].get("qvreader_build_type", "")
    if build not in OPTIMISED:
        print(f"compare.py: the library's build type is '{build}', not an optimised one", file=sys.stderr)
        return 2
    if not rows or any(len(sides) != 2 or OURS not in sides for sides in rows.values()):
        print("compare.py: the report does not hold both sides of every row", file=sys.stderr)
        return 2

    slow = 0
    width = max(len(task) for task, _ in rows)
    print(f"{'task':<{width}} {'bytes':>6} {OURS + ' ns':>12} {'peer ns':>12} {'ratio':>7}  peer")
    for (task, size), sides in sorted(rows.items()):
        peer = next(who for who in sides if who != OURS)
        ratio = sides[OURS] / sides[peer]
        slow += ratio > arguments.limit
        mark = "  above the limit" if ratio > arguments.limit else ""
        print(f"{task:<{width}} {size:>6} {sides[OURS]:>12.1f} {sides[peer]:>12.1f} {ratio:>7.2f}  {peer}{mark}")
    return 1 if slow and not arguments.report_only else 0


if __name__ == "__main__":
    sys.exit(main())
