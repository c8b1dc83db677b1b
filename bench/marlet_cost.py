#!/usr/bin/env python3
"""Cost of a Marlet iteration against a standard one, file by file.

    bench/marlet_cost.py [--problems BUILD/bench/problems] [--manifest PATH] [--split dev]
                         [--iterations 1000] [--repetitions 3]

Each file of the split is solved by both iterations for a fixed number of iterations (eps
1e-12, so that few stop early) and for one iteration, alternating the two kinds,
`--repetitions` times; each time is the fastest of its repetitions (the least disturbed by
the rest of the machine), from the solve time that `problems` reports. The cost of an
iteration is the difference of the two solve times over the difference of the iteration
counts, so that what a solve does once (its first projections, the final report) does not
weigh on files that stop after a few iterations. Prints a markdown table and the
median of the ratios over the files. The solver runs on one thread (KORVEX_THREADS=1,
OpenBLAS on one thread).
"""
import argparse
import os
import statistics
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def manifest_files(path, split):
    files = []
    with open(path) as handle:
        header = handle.readline().rstrip("\n").split("\t")
        for line in handle:
            row = dict(zip(header, line.rstrip("\n").split("\t")))
            if split == "all" or "split=%s;" % split in row.get("notes", "") + ";":
                files.append(row["file"])
    return files


def solve_time(problems, path, marlet, iterations):
    """The iteration count and the solve time in microseconds."""
    env = dict(os.environ, KORVEX_THREADS="1", OPENBLAS_NUM_THREADS="1")
    out = subprocess.run([problems, "--eps", "1e-12", "--max_iters", str(iterations), "--do_super_korvex",
                          "1" if marlet else "0", path], capture_output=True, text=True, env=env, check=True).stdout
    for line in out.splitlines():
        cells = [cell.strip() for cell in line.split("|")[1:-1]]
        if len(cells) == 10 and cells[0] == path:
            return int(cells[2]), float(cells[9]) * max(int(cells[2]), 1)
    raise RuntimeError("no result for %s:\n%s" % (path, out))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--problems", default=os.path.join(ROOT, "build/release/bench/problems"))
    parser.add_argument("--manifest", default=os.path.join(ROOT, "../shared/bench/MANIFEST.tsv"))
    parser.add_argument("--split", default="dev")
    parser.add_argument("--iterations", type=int, default=1000)
    parser.add_argument("--repetitions", type=int, default=3)
    options = parser.parse_args()
    folder = os.path.dirname(os.path.abspath(options.manifest))
    print("| file | standard: iterations | us / iteration | Marlet: iterations | us / iteration | ratio |")
    print("|---|---|---|---|---|---|")
    ratios = []
    for name in manifest_files(options.manifest, options.split):
        path = os.path.join(folder, name)
        best = {}
        for _ in range(options.repetitions):
            for marlet in (False, True):
                for limit in (1, options.iterations):
                    count, time = solve_time(options.problems, path, marlet, limit)
                    key = (marlet, limit)
                    if key not in best or time < best[key][1]:
                        best[key] = (count, time)
        cost = {}
        for marlet in (False, True):
            (one, first), (count, total) = best[(marlet, 1)], best[(marlet, options.iterations)]
            cost[marlet] = (count, (total - first) / (count - one) if count > one else total / max(count, 1))
        ratio = cost[True][1] / cost[False][1]
        ratios.append(ratio)
        print("| %s | %d | %.2f | %d | %.2f | %.2f |" % (name, cost[False][0], cost[False][1], cost[True][0],
                                                      cost[True][1], ratio))
        sys.stdout.flush()
    print("\nMedian ratio over %d files: %.2f" % (len(ratios), statistics.median(ratios)))


if __name__ == "__main__":
    main()
