#!/usr/bin/python3
"""The Python half of bench/peers: reads CBF and SDPA files on its own (independently of
korvex's readers, so that a fault there shows as a difference of objectives), converts
them to the peers' inputs, runs CVXOPT, reads the outputs of ECOS and CSDP, and writes the
tables of the ladder.

    peers.py convert FILE.cbf DIR      G, h, A, b, c and the cones for ECOS and CVXOPT
    peers.py ecos DIR EPS              runs ecos.R on DIR, prints one JSON result line
    peers.py cvxopt INPUT EPS          INPUT: a DIR made by convert, or an SDPA file
    peers.py csdp FILE.dat-s EPS       runs csdp in a scratch folder
    peers.py check MANIFEST.tsv EPS    ECOS on the problem set's CBF files, against the references
    peers.py korvex BIN FILE EPS MARLET LIMIT   runs korvex, prints one JSON result line
    peers.py run LIST --data DIR --korvex BIN [...]   the whole comparison, resumable
    peers.py table [--cpu] RESULTS.csv INFO...   the Markdown tables (--cpu: CPU times)

Every solver is asked for the same thing: min c'x (the file's sense and constant put
back on the objective it reports) with residuals and gap at most EPS in its own
measures. The conic form shared by ECOS and CVXOPT is

    minimise c'x  subject to  A x = b,  h - G x in K,

K = non-negative orthant x second-order cones x exponential cones, in that order. ECOS's
exponential cone is {(u1, u2, u3): u3 exp(u1 / u3) <= u2, u3 > 0}; CBF's EXP is
{(x1, x2, x3): x1 >= x2 exp(x3 / x2)}, so a CBF triple goes to ECOS as (x3, x1, x2).
cvxopt.solvers.conelp has no exponential cone: those files are reported "unsupported".
"""
import json
import math
import os
import re
import subprocess
import sys
import tempfile
import time

import numpy as np
import scipy.sparse as sp

HERE = os.path.dirname(os.path.abspath(__file__))
KEYWORD = re.compile(r"\n(?=[A-Za-z@])")


# --------------------------------------------------------------------------- CBF


class Cbf:
    """A CBF file as g = A x + b in row blocks, with cones on variables and rows."""

    def __init__(self, path):
        with open(path, "r", encoding="ascii") as handle:
            self.text = handle.read()
        self.pos = 0
        self.sense = 1.0
        self.var_cones, self.con_cones = [], []
        self.n = self.m = 0
        self.c = None
        self.constant = 0.0
        self.a = (np.zeros(0), np.zeros(0), np.zeros(0))
        self.b = None
        self._parse(path)
        del self.text

    def _line(self):
        """The next line that is neither blank nor a comment, stripped; None at the end."""
        while self.pos < len(self.text):
            end = self.text.find("\n", self.pos)
            end = len(self.text) if end < 0 else end
            line = self.text[self.pos:end].strip()
            self.pos = end + 1
            if line and not line.startswith("#"):
                return line
        return None

    def _cones(self):
        total, count = (int(v) for v in self._line().split())
        cones = []
        for _ in range(count):
            kind, size = self._line().split()
            cones.append((kind, int(size)))
        if sum(size for _, size in cones) != total:
            raise ValueError("cone sizes do not add up to %d" % total)
        return total, cones

    def _numbers(self, count, width):
        """count lines of width numbers each, parsed in one call."""
        if count == 0:
            return np.zeros((0, width))
        found = KEYWORD.search(self.text, self.pos)
        end = found.start() + 1 if found else len(self.text)
        values = np.fromstring(self.text[self.pos:end], dtype=float, sep=" ")
        if values.size != count * width:
            raise ValueError("a coordinate section holds %d numbers, not %d" % (values.size, count * width))
        self.pos = end
        return values.reshape(count, width)

    def _parse(self, path):
        acoord = np.zeros((0, 3))
        bcoord = np.zeros((0, 2))
        objective = np.zeros((0, 2))
        while True:
            keyword = self._line()
            if keyword is None:
                break
            if keyword == "VER":
                self._line()
            elif keyword == "OBJSENSE":
                self.sense = -1.0 if self._line().upper() == "MAX" else 1.0
            elif keyword == "VAR":
                self.n, self.var_cones = self._cones()
            elif keyword == "CON":
                self.m, self.con_cones = self._cones()
            elif keyword == "OBJACOORD":
                objective = self._numbers(int(self._line()), 2)
            elif keyword == "OBJBCOORD":
                self.constant = float(self._line())
            elif keyword == "ACOORD":
                acoord = self._numbers(int(self._line()), 3)
            elif keyword == "BCOORD":
                bcoord = self._numbers(int(self._line()), 2)
            else:
                raise ValueError("%s: %s is not read here (integer, matrix and power parts are not)" % (path, keyword))
        self.c = np.zeros(self.n)
        np.add.at(self.c, objective[:, 0].astype(np.int64), objective[:, 1])
        self.a = (acoord[:, 0].astype(np.int64), acoord[:, 1].astype(np.int64), acoord[:, 2])
        self.b = np.zeros(self.m)
        np.add.at(self.b, bcoord[:, 0].astype(np.int64), bcoord[:, 1])


# CBF cone -> (group of the peers' form, map of the block's rows); F rows are dropped.
CONE_GROUPS = {"L=": ("eq", "identity"), "L+": ("l", "identity"), "L-": ("l", "negate"),
               "Q": ("q", "identity"), "QR": ("q", "rotated"), "EXP": ("e", "exp")}


def group_maps(cones, total):
    """For CBF cone blocks over total rows of g: for each group of the peers' form (eq, l,
    q, e) a sparse matrix T taking g to the group's rows, and the sizes of the q blocks.
    Vectorised over blocks, since a file may hold millions of small cones."""
    kinds = np.array([kind for kind, _ in cones] or [""], dtype=object)[:len(cones)]
    unknown = set(kinds.tolist()) - set(CONE_GROUPS) - {"F"}
    if unknown:
        raise ValueError("cone %s is not read here" % sorted(unknown)[0])
    sizes = np.array([size for _, size in cones], dtype=np.int64)
    firsts = np.cumsum(sizes) - sizes
    maps = {}
    for group in ("eq", "l", "q", "e"):
        mask = np.isin(kinds, [k for k, (g, _) in CONE_GROUPS.items() if g == group])
        first, size, kind = firsts[mask], sizes[mask], kinds[mask]
        count = int(size.sum())
        starts = np.cumsum(size) - size  # where each block starts among the group's rows
        rows = np.arange(count, dtype=np.int64)
        cols = np.repeat(first, size) + rows - np.repeat(starts, size)
        vals = np.where(np.repeat(kind == "L-", size), -1.0, 1.0)
        if group == "e":  # CBF (x1, x2, x3) -> ECOS (x3, x1, x2), triple by triple
            if np.any(size % 3):
                raise ValueError("an EXP block whose size is not a multiple of 3")
            within = rows % 3
            cols = cols - within + np.array([2, 0, 1])[within]
        rotated = kind == "QR"
        if group == "q" and rotated.any():  # 2 g0 g1 >= |g2..|^2: ((g0 + g1)/r2, (g0 - g1)/r2, g2..) in Q
            at, source = starts[rotated], first[rotated]
            keep = ~np.isin(rows, np.concatenate([at, at + 1]))
            r = np.full(at.size, 1 / math.sqrt(2.0))
            rows = np.concatenate([rows[keep], at, at, at + 1, at + 1])
            cols = np.concatenate([cols[keep], source, source + 1, source, source + 1])
            vals = np.concatenate([vals[keep], r, r, r, -r])
        maps[group] = (sp.csr_matrix((vals, (rows, cols)), shape=(count, total)), size.tolist())
    return maps


def convert(path, out):
    """Writes the ECOS/CVXOPT form of a CBF file into the folder out."""
    problem = Cbf(path)
    n = problem.n
    i, j, v = problem.a
    a_con = sp.csr_matrix((v, (i, j)), shape=(problem.m, n))
    parts = {"eq": [], "l": [], "q": [], "e": []}
    soc = []
    for matrix, offset, cones in ((sp.identity(n, format="csr"), np.zeros(n), problem.var_cones),
                                  (a_con, problem.b, problem.con_cones)):
        for group, (t, sizes) in group_maps(cones, matrix.shape[0]).items():
            if t.shape[0] > 0:
                parts[group].append((t @ matrix, t @ offset))
                if group == "q":
                    soc += sizes
    os.makedirs(out, exist_ok=True)

    def stack(items):
        if not items:
            return sp.csc_matrix((0, n)), np.zeros(0)
        return sp.vstack([m for m, _ in items]).tocsc(), np.concatenate([o for _, o in items])

    # g = M x + o in K:  G = -M, h = o;  g = 0:  A = M, b = -o
    g_matrix, h = stack(parts["l"] + parts["q"] + parts["e"])
    a_matrix, b = stack(parts["eq"])
    for name, matrix in (("G", -g_matrix), ("A", a_matrix)):
        matrix.sort_indices()
        matrix.indptr.astype("<i4").tofile(os.path.join(out, name + "_p.bin"))
        matrix.indices.astype("<i4").tofile(os.path.join(out, name + "_i.bin"))
        matrix.data.astype("<f8").tofile(os.path.join(out, name + "_x.bin"))
    for name, vector in (("c", problem.c), ("h", h), ("b", -b)):
        vector.astype("<f8").tofile(os.path.join(out, name + ".bin"))
    lines = ["n %d" % n, "mG %d" % g_matrix.shape[0], "mA %d" % a_matrix.shape[0],
             "l %d" % sum(m.shape[0] for m, _ in parts["l"]),
             "q " + " ".join(str(s) for s in soc), "e %d" % (sum(m.shape[0] for m, _ in parts["e"]) // 3),
             "sense %r" % problem.sense, "constant %r" % problem.constant]
    with open(os.path.join(out, "meta.txt.part"), "w") as handle:
        handle.write("\n".join(lines) + "\n")
    os.replace(os.path.join(out, "meta.txt.part"), os.path.join(out, "meta.txt"))


def load(folder):
    meta = {}
    with open(os.path.join(folder, "meta.txt")) as handle:
        for line in handle:
            key, _, rest = line.rstrip("\n").partition(" ")
            meta[key] = rest
    n = int(meta["n"])

    def matrix(name, rows):
        p = np.fromfile(os.path.join(folder, name + "_p.bin"), dtype="<i4")
        i = np.fromfile(os.path.join(folder, name + "_i.bin"), dtype="<i4")
        x = np.fromfile(os.path.join(folder, name + "_x.bin"), dtype="<f8")
        return sp.csc_matrix((x, i, p), shape=(rows, n))

    vector = lambda name: np.fromfile(os.path.join(folder, name + ".bin"), dtype="<f8")
    return {"G": matrix("G", int(meta["mG"])), "A": matrix("A", int(meta["mA"])), "c": vector("c"),
            "h": vector("h"), "b": vector("b"), "l": int(meta["l"]),
            "q": [int(s) for s in meta["q"].split()], "e": int(meta["e"]),
            "sense": float(meta["sense"]), "constant": float(meta["constant"])}


# --------------------------------------------------------------------------- SDPA


def read_sdpa(path):
    """min c'y s.t. sum y_k F_k - F_0 psd, as G y + s = h with s the blocks stacked (full
    column-major matrices for CVXOPT's 's' cones, the diagonal blocks as 'l')."""
    with open(path) as handle:
        lines = [line for line in handle if line.strip() and not line.startswith(('"', "*"))]
    # m and the number of blocks lead their lines, which may go on with text such as "=mdim"
    m, nblocks = (int(re.match(r"[\s,(){}]*\+?(\d+)", line).group(1)) for line in lines[:2])
    words = re.split(r"[\s,(){}]+", " ".join(lines[2:]).strip())
    sizes = [int(float(w)) for w in words[:nblocks]]
    c = np.array([float(w) for w in words[nblocks:nblocks + m]])
    entries = np.array(words[nblocks + m:], dtype=float).reshape(-1, 5)
    # row offsets: diagonal blocks first ('l'), then the full matrices ('s')
    diagonal = [k for k, s in enumerate(sizes) if s < 0]
    full = [k for k, s in enumerate(sizes) if s > 0]
    offset, position = {}, 0
    for k in diagonal + full:
        offset[k] = position
        position += -sizes[k] if sizes[k] < 0 else sizes[k] ** 2
    rows, cols, vals = [], [], []
    for matrix, block, i, j, value in entries:
        k, i, j = int(block) - 1, int(i) - 1, int(j) - 1
        if sizes[k] < 0:
            targets = [offset[k] + i] if i == j else []
        else:
            side = sizes[k]
            targets = {offset[k] + i + j * side, offset[k] + j + i * side}
        for r in targets:
            rows.append(r)
            cols.append(int(matrix))
            vals.append(value)
    f = sp.csc_matrix((vals, (rows, cols)), shape=(position, m + 1))
    # s = sum y_k F_k - F_0 = h - G y  with  G = -F_{1..m},  h = -F_0
    return {"G": -f[:, 1:], "h": -f[:, 0].toarray().ravel(), "c": c, "A": sp.csc_matrix((0, m)),
            "b": np.zeros(0), "l": sum(-sizes[k] for k in diagonal), "q": [],
            "s": [sizes[k] for k in full], "e": 0, "sense": 1.0, "constant": 0.0}


# --------------------------------------------------------------------------- peers


def timed_run(command, cwd=None):
    """Runs a command to its end; its output and the CPU time of its processes."""
    import resource
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    out = subprocess.run(command, cwd=cwd, capture_output=True, text=True)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return out, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def report(status, objective=float("nan"), seconds=float("nan"), iterations=-1, note="", cpu=None):
    """One result line; cpu, where given, is the CPU time of the solve alone, without the
    start of R or Python and the reading that the CPU time of the whole run includes."""
    print(json.dumps({"status": status, "objective": objective, "seconds": seconds,
                      "iterations": iterations, "note": note, "cpu": cpu}))


def run_ecos(folder, eps):
    meta = load(folder)  # only for the sense and constant
    started = time.monotonic()
    out = subprocess.run(["Rscript", os.path.join(HERE, "ecos.R"), folder, str(eps)],
                         capture_output=True, text=True)
    wall = time.monotonic() - started
    found = dict(re.findall(r"(\w+)=(\S+)", out.stdout))
    if out.returncode != 0 or "exitflag" not in found:
        memory = re.search(r"cannot allocate|memory", out.stderr, re.I)
        report("memory" if memory else "failed", seconds=wall,
               note=(out.stderr.strip().splitlines() or ["no output"])[-1][:120])
        return
    flag = int(found["exitflag"])
    status = {0: "solved", 10: "inaccurate", 1: "infeasible", 2: "unbounded", 11: "infeasible", 12: "unbounded",
              -1: "iteration limit"}.get(flag, "failed")
    objective = meta["sense"] * float(found["pcost"]) + meta["constant"]
    report(status, objective, float(found["runtime"]), int(found["iter"]), "exitflag %d" % flag, float(found["cpu"]))


def run_cvxopt(source, eps):
    import cvxopt
    from cvxopt import solvers
    problem = read_sdpa(source) if os.path.isfile(source) else load(source)
    if problem["e"] > 0:
        report("unsupported", note="cvxopt.solvers.conelp has no exponential cone")
        return

    def spmatrix(m):
        m = m.tocoo()
        return cvxopt.spmatrix(m.data.tolist(), m.row.tolist(), m.col.tolist(), m.shape)

    dims = {"l": problem["l"], "q": problem["q"], "s": problem.get("s", [])}
    args = [cvxopt.matrix(problem["c"]), spmatrix(problem["G"]), cvxopt.matrix(problem["h"]), dims]
    if problem["A"].shape[0] > 0:
        args += [spmatrix(problem["A"]), cvxopt.matrix(problem["b"])]
    solvers.options.update({"show_progress": False, "abstol": eps, "reltol": eps, "feastol": eps,
                            "maxiters": 500})
    started, cpu = time.monotonic(), time.process_time()
    result = solvers.conelp(*args)
    seconds, cpu = time.monotonic() - started, time.process_time() - cpu
    status = {"optimal": "solved", "primal infeasible": "infeasible",
              "dual infeasible": "unbounded"}.get(result["status"], "inaccurate")
    objective = result["primal objective"]
    objective = problem["sense"] * objective + problem["constant"] if objective is not None else float("nan")
    report(status, objective, seconds, result["iterations"], result["status"], cpu)


CSDP_PARAMETERS = """axtol={eps}
atytol={eps}
objtol={eps}
pinftol=1.0e8
dinftol=1.0e8
maxiter=100
minstepfrac=0.90
maxstepfrac=0.97
minstepp=1.0e-8
minstepd=1.0e-8
usexzgap=1
tweakgap=0
affine=0
printlevel=1
perturbobj=1
fastmode=0
"""


def run_csdp(path, eps):
    with tempfile.TemporaryDirectory(prefix="ladder-csdp-") as scratch:
        with open(os.path.join(scratch, "param.csdp"), "w") as handle:
            handle.write(CSDP_PARAMETERS.format(eps=eps))
        started = time.monotonic()
        out, cpu = timed_run(["csdp", os.path.abspath(path)], cwd=scratch)
        seconds = time.monotonic() - started
    # csdp: 0 solved, 1 primal infeasible, 2 dual infeasible, 3 partial success, 4 and up failures
    status = {0: "solved", 1: "infeasible", 2: "unbounded", 3: "inaccurate", 4: "iteration limit"}.get(
        out.returncode, "failed")
    found = re.search(r"Dual objective value:\s*(\S+)", out.stdout)
    iterations = re.findall(r"Iter:\s*(\d+)", out.stdout)
    # CSDP maximises tr(F_0 X) over its primal; its dual min c'y is the file's SDPA objective
    report(status, float(found.group(1)) if found else float("nan"), seconds,
           int(iterations[-1]) if iterations else -1, "return code %d (wall time, reading included)" % out.returncode,
           cpu)


# --------------------------------------------------------------------------- korvex


def run_korvex(binary, path, eps, marlet, limit):
    """korvex's summary line: status, objective (the file's sense), setup and solve times."""
    command = [binary, "--verbose", "0", "--eps", str(eps), "--do_super_korvex", "1" if marlet else "0",
               "--max_iters", "100000000", "--time-limit", str(limit), path]
    out, cpu = timed_run(command)
    found = re.search(r"korvex: (\S+), objective (\S+) \((min|max)\), (-?\d+) iterations, read \S+s, "
                      r"setup (\S+)s, solve (\S+)s", out.stdout)
    if not found:
        report("failed", note=(out.stderr.strip().splitlines() or ["exit %d" % out.returncode])[-1][:120])
        return
    word = found.group(1)
    status = {"Solved": "solved", "Interrupted": "timeout", "Infeasible": "infeasible",
              "Unbounded": "unbounded"}.get(word, "inaccurate" if "Inaccurate" in word else "failed")
    seconds = float(found.group(5)) + float(found.group(6)) if status != "timeout" else float("nan")
    report(status, float(found.group(2)), seconds, int(found.group(4)), word, cpu)


# --------------------------------------------------------------------------- the run


def applies(solver, family):
    if solver == "csdp":
        return family in ("mc", "maxcut")
    if solver == "ecos":
        return family not in ("mc", "maxcut")
    return True


def run(options):
    """Solves every instance of the list with every solver at every eps, appending one row
    per run to DATA/results.csv; rows already there are kept (unless --redo), so an
    interrupted run resumes. A run that passes the time limit is recorded as a timeout."""
    import csv
    import resource
    import signal
    fields = ["family", "name", "size", "solver", "eps", "status", "objective", "iterations", "seconds",
              "wall_seconds", "cpu_seconds", "version", "note"]
    results = os.path.join(options.data, "results.csv")
    done = set()
    if os.path.exists(results) and not options.redo:
        with open(results) as handle:
            done = {(r["name"], r["solver"], r["eps"]) for r in csv.DictReader(handle)}
    fresh = not os.path.exists(results)
    versions = {"ecos": "r-cran-ecosolver", "csdp": "coinor-csdp", "cvxopt": "python3-cvxopt"}

    def version(solver):
        if solver.startswith("korvex"):
            return options.korvex_version
        out = subprocess.run(["dpkg-query", "-W", "-f=${Version}", versions[solver]], capture_output=True, text=True)
        return out.stdout.strip() or "absent"

    def limit_memory():
        os.setsid()
        cap = int(options.mem_limit_gb * 2**30)
        resource.setrlimit(resource.RLIMIT_AS, (cap, cap))

    # korvex too runs on one thread (KORVEX_THREADS), like every peer
    env = dict(os.environ, OPENBLAS_NUM_THREADS="1", OMP_NUM_THREADS="1", KORVEX_THREADS="1")
    with open(options.list) as handle:
        instances = [line.rstrip("\n").split("\t") for line in handle if line.strip()]
    # the smallest size of every family first, then the next, so that a short run covers all
    seen, ranked = {}, []
    for instance in instances:
        seen[instance[0]] = seen.get(instance[0], 0) + 1
        ranked.append((seen[instance[0]], instance))
    instances = [instance for _, instance in sorted(ranked, key=lambda pair: pair[0])]
    with open(results, "a", newline="") as handle:
        writer = csv.DictWriter(handle, fieldnames=fields)
        if fresh:
            writer.writeheader()
        for family, name, size, _, _, _, _, cbf, sdpa in instances:
            problem = sdpa if family in ("mc", "maxcut") else cbf
            converted = os.path.splitext(cbf)[0] + ".peer"
            for eps in options.eps:
                for solver in options.solvers:
                    if not applies(solver, family) or (name, solver, eps) in done:
                        continue
                    if solver in ("ecos", "cvxopt") and family not in ("mc", "maxcut") and \
                            not os.path.exists(os.path.join(converted, "meta.txt")):
                        print("peers: converting %s" % cbf, flush=True)
                        convert(cbf, converted)
                    if solver.startswith("korvex"):
                        command = [sys.executable, __file__, "korvex", options.korvex, problem, eps,
                                   "1" if solver == "korvex-marlet" else "0", str(options.time_limit)]
                    else:
                        source = problem if solver == "csdp" or family in ("mc", "maxcut") else converted
                        command = [sys.executable, __file__, solver, source, eps]
                    print("peers: %s %s eps %s" % (solver, name, eps), flush=True)
                    started = time.monotonic()
                    before = resource.getrusage(resource.RUSAGE_CHILDREN)
                    process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                               env=env, preexec_fn=limit_memory)
                    try:
                        stdout, stderr = process.communicate(timeout=options.time_limit + 60)
                        lines = [l for l in stdout.splitlines() if l.startswith("{")]
                        row = json.loads(lines[-1]) if lines else {
                            # out of the address-space cap, or past a 32-bit count of entries
                            "status": "memory" if re.search(r"MemoryError|memory|alloc|INT_MAX", stderr, re.I)
                            else "failed",
                            "objective": float("nan"), "seconds": float("nan"), "iterations": -1,
                            "note": (stderr.strip().splitlines() or ["exit %d" % process.returncode])[-1][:120]}
                    except subprocess.TimeoutExpired:
                        os.killpg(process.pid, signal.SIGKILL)
                        process.communicate()
                        row = {"status": "timeout", "objective": float("nan"), "seconds": float("nan"),
                               "iterations": -1, "note": "passed %g s" % options.time_limit}
                    wall = time.monotonic() - started
                    after = resource.getrusage(resource.RUSAGE_CHILDREN)  # the whole run's processes, reading included
                    cpu = row.get("cpu") or after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
                    if row["status"] == "solved" and float(row["seconds"]) > options.time_limit:
                        row["status"], row["note"] = "timeout", "solved after the limit"
                    writer.writerow({"family": family, "name": name, "size": size, "solver": solver, "eps": eps,
                                     "status": row["status"], "objective": repr(row["objective"]),
                                     "iterations": row["iterations"], "seconds": "%.6g" % row["seconds"],
                                     "wall_seconds": "%.3f" % wall, "cpu_seconds": "%.3f" % cpu, "version": version(solver),
                                     "note": row["note"]})
                    handle.flush()
                    print("peers:   %s %s s, objective %s" % (row["status"], row["seconds"], row["objective"]),
                          flush=True)


# --------------------------------------------------------------------------- conversion check


def check(manifest, eps):
    """Converts every second-order and exponential CBF file of the problem-set manifest and
    solves it with ECOS: objectives that match the references confirm the conversion (cone
    order, signs, the exponential triple's order) independently of korvex."""
    base = os.path.dirname(os.path.abspath(manifest))
    print("| file | ECOS status | objective | reference | rel. diff. |\n|---|---|---|---|---|")
    with open(manifest) as handle, tempfile.TemporaryDirectory(prefix="ladder-check-") as scratch:
        header = handle.readline().rstrip("\n").split("\t")
        for line in handle:
            row = dict(zip(header, line.rstrip("\n").split("\t")))
            if row["family"] not in ("socp", "exp") or not row["file"].endswith(".cbf"):
                continue
            folder = os.path.join(scratch, os.path.basename(row["file"]))
            convert(os.path.join(base, row["file"]), folder)
            out = subprocess.run([sys.executable, __file__, "ecos", folder, str(eps)], capture_output=True, text=True)
            result = json.loads(out.stdout.splitlines()[-1])
            try:
                reference = float(row["reference_objective"])
                diff = "%.1e" % (abs(result["objective"] - reference) / (1 + abs(reference)))
            except ValueError:
                reference, diff = row["reference_objective"], "-"
            print("| %s | %s | %.10g | %s | %s |" % (row["file"], result["status"], result["objective"], reference, diff),
                  flush=True)


# --------------------------------------------------------------------------- tables

SOLVERS = [("korvex-standard", "korvex standard"), ("korvex-marlet", "korvex Marlet"), ("ecos", "ECOS"),
           ("csdp", "CSDP"), ("cvxopt", "CVXOPT")]
PEERS = ("ecos", "csdp", "cvxopt")


def seconds(row, measure):
    """The time of a run: the solver's own (default), or the CPU time of its processes."""
    value = row.get("cpu_seconds" if measure == "cpu" else "seconds") or "nan"
    return float(value)


def cell(row, measure):
    if row is None:
        return ""
    if row["status"] == "solved":
        return "%.3g" % seconds(row, measure)
    return {"timeout": "timeout", "unsupported": "n/a", "memory": "memory"}.get(row["status"], row["status"])


def table(results, infos, measure="solver"):
    import csv
    rows = {}
    with open(results) as handle:
        for row in csv.DictReader(handle):
            rows[(row["name"], row["solver"], row["eps"])] = row
    instances = []
    for path in infos:
        with open(path) as handle:
            family, name, size, n, m, nnz, cones = handle.readline().rstrip("\n").split("\t")[:7]
        instances.append((family, int(size), name, n, m, nnz, cones))
    instances.sort(key=lambda i: (["tv", "lasso", "mc", "maxcut", "logreg"].index(i[0]), i[1]))
    eps_values = sorted({key[2] for key in rows}, key=float, reverse=True)
    out = []
    for family in dict.fromkeys(i[0] for i in instances):
        members = [i for i in instances if i[0] == family and any(k[0] == i[2] for k in rows)]
        if not members:
            continue
        present = [s for s in SOLVERS if any((i[2], s[0], e) in rows for i in members for e in eps_values)]
        out.append("#### %s\n" % family)
        head = ["instance", "n", "m", "nnz(A)"]
        for _, label in present:
            head += ["%s %s" % (label, e) for e in eps_values]
        head += ["objective"] + ["rel. diff. %s" % e for e in eps_values]
        out.append("| " + " | ".join(head) + " |")
        out.append("|" + "---|" * len(head))
        for _, _, name, n, m, nnz, _ in members:
            line = [name, n, m, nnz]
            for solver, _ in present:
                line += [cell(rows.get((name, solver, e)), measure) for e in eps_values]
            # reference: the first interior-point peer solved at the tightest eps, else korvex
            tight = eps_values[-1]
            solved = [rows[(name, s, tight)] for s in PEERS + ("korvex-marlet", "korvex-standard")
                      if rows.get((name, s, tight), {}).get("status") == "solved"]
            if solved:
                reference = float(solved[0]["objective"])
                line.append("%.7g (%s)" % (reference, solved[0]["solver"]))
                for e in eps_values:  # the largest |f - f_ref| / (1 + |f_ref|) of the runs solved at e
                    diffs = [abs(float(r["objective"]) - reference) / (1 + abs(reference))
                             for r in (rows.get((name, s, e)) for s, _ in SOLVERS) if r and r["status"] == "solved"]
                    line.append("%.1e" % max(diffs) if diffs else "-")
            else:
                line += ["-"] * (1 + len(eps_values))
            out.append("| " + " | ".join(str(x) for x in line) + " |")
        out.append("")
        tight = eps_values[-1]
        for peer in PEERS:
            if not any((i[2], peer, tight) in rows for i in members):
                continue
            if all(rows.get((i[2], peer, tight), {}).get("status") in (None, "unsupported") for i in members):
                out.append("- %s: cannot state these problems." % dict(SOLVERS)[peer])
                continue
            ahead = None
            for index, member in enumerate(members):
                if (member[2], peer, tight) not in rows:  # not measured: says nothing either way
                    continue
                def time_of(solver):
                    row = rows.get((member[2], solver, tight))
                    return seconds(row, measure) if row and row["status"] == "solved" else math.inf
                ours = min(time_of("korvex-standard"), time_of("korvex-marlet"))
                if ours < time_of(peer):
                    ahead = index if ahead is None else ahead
                else:
                    ahead = None
            peer_label = dict(SOLVERS)[peer]
            if ahead is None:
                out.append("- %s: korvex is not ahead at the largest size measured (eps %s)." % (peer_label, tight))
            else:
                out.append("- %s: korvex (the better iteration) is ahead from %s on (eps %s)." %
                           (peer_label, members[ahead][2], tight))
        out.append("")
    print("\n".join(out))


def main(argv):
    if len(argv) < 2:
        sys.exit(__doc__)
    command, args = argv[1], argv[2:]
    if command == "convert" and len(args) == 2:
        convert(*args)
    elif command == "ecos" and len(args) == 2:
        run_ecos(args[0], float(args[1]))
    elif command == "cvxopt" and len(args) == 2:
        run_cvxopt(args[0], float(args[1]))
    elif command == "csdp" and len(args) == 2:
        run_csdp(args[0], float(args[1]))
    elif command == "check" and len(args) == 2:
        check(args[0], float(args[1]))
    elif command == "korvex" and len(args) == 5:
        run_korvex(args[0], args[1], float(args[2]), args[3] == "1", float(args[4]))
    elif command == "run":
        import argparse
        parser = argparse.ArgumentParser(prog="peers.py run")
        parser.add_argument("list", help="the instances, one .info line each (ladder_generate's output)")
        parser.add_argument("--data", required=True)
        parser.add_argument("--korvex", required=True)
        parser.add_argument("--korvex-version", default="")
        parser.add_argument("--eps", type=lambda t: t.split(","), default=["1e-3", "1e-4"])
        parser.add_argument("--solvers", type=lambda t: t.split(","),
                            default=["korvex-standard", "korvex-marlet", "ecos", "csdp", "cvxopt"])
        parser.add_argument("--time-limit", type=float, default=600)
        parser.add_argument("--mem-limit-gb", type=float, default=16)
        parser.add_argument("--redo", action="store_true")
        run(parser.parse_args(args))
    elif command == "table" and len(args) >= 2 and args[0] == "--cpu":
        table(args[1], args[2:], "cpu")
    elif command == "table" and len(args) >= 1:
        table(args[0], args[1:])
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main(sys.argv)
