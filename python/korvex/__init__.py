"""Korvex: a solver for convex cone programs

    minimise c'x  subject to  A x + s = b,  s in K,

where K is a product of the zero cone, the non-negative orthant, second-order cones,
semidefinite cones (packed lower triangle by columns, off-diagonal entries times
sqrt(2)), primal and dual exponential cones and power cones, in that order of rows.

    import korvex, numpy as np, scipy.sparse as sp
    A = sp.csc_matrix([[-1.0, 0.0], [0.0, -1.0], [1.0, 1.0]])
    result = korvex.solve(A, np.array([0.0, 0.0, 1.0]), np.array([-1.0, -2.0]),
                          {"linear_vars": 3}, eps=1e-8, verbose=0)
    result.status, result.x          # 'Solved', array([0., 1.])

    problem = korvex.read("portfolio.cbf")   # CBF, SDPA sparse or MPS, gzipped or not
    result = korvex.solve(problem)           # or korvex.solve(**problem)

    results = korvex.solve_many(["a.cbf", "b.dat-s"], eps=1e-6)        # local processes
    results = korvex.solve_many(problems, client=dask_client)          # a Dask cluster

Settings go by the names of the fields of the solver's Settings record (eps, max_iters,
alpha, rho_x, do_super_korvex, dir, memory, record_progress, verbose, ...); see
default_settings() and setting_help(). An unknown name raises TypeError, a value the
solver would refuse raises ValueError.
"""

import difflib as _difflib
import os as _os
import time as _time
from collections.abc import Mapping as _Mapping

import numpy as _np
import scipy.sparse as _sparse

from . import _korvex
from ._korvex import ReadError

__all__ = ["solve", "read", "solve_many", "Problem", "Result", "ReadError", "default_settings", "setting_help",
           "CONE_FIELDS", "__version__"]

__version__ = _korvex.version

CONE_FIELDS = ("free_vars", "linear_vars", "soc_sizes", "sd_sizes", "exp_triples", "dual_exp_triples",
               "power_exponents")

# The fields of Info, in the record's order, that every result carries.
INFO_FIELDS = ("iter", "status", "statusVal", "pobj", "dobj", "resPri", "resDual", "resInfeas", "resUnbdd",
               "relGap", "setupTime", "solveTime", "progress_count", "memory_bytes")

# The progress history of a Marlet solve with record_progress set, one entry per iteration.
HISTORY_FIELDS = ("progress_iteration", "progress_rel_gap", "progress_res_pri", "progress_res_dual",
                  "progress_primal_cost", "progress_dual_cost", "progress_fpr_norm", "progress_time_ms",
                  "progress_step_kind", "progress_ls_count")


def default_settings():
    """The default of every setting, by its field name."""
    return _korvex.default_settings()


def setting_help():
    """One line of help for every setting, by its field name."""
    return _korvex.setting_help()


_SETTING_NAMES = tuple(default_settings())


def _check_setting_names(settings):
    for name in settings:
        if name == "progress_capacity":
            raise TypeError("progress_capacity is kept by the module, which sizes the history arrays itself")
        if name not in _SETTING_NAMES:
            close = _difflib.get_close_matches(name, _SETTING_NAMES, n=1)
            hint = f"; did you mean {close[0]!r}?" if close else f"; the settings are {', '.join(_SETTING_NAMES)}"
            raise TypeError(f"unknown setting {name!r}{hint}")


class Result:
    """What a solve returns.

    x, y, s           numpy arrays: the primal point, the dual point and the slack, or a
                      certificate (an infeasible problem gives y with b'y = -1 and NaN in
                      x and s; an unbounded one x and s with c'x = -1 and NaN in y)
    status, statusVal the status text and code: 1 Solved, 2 Solved/Inaccurate,
                      -1 Unbounded, -6 Unbounded/Inaccurate, -2 Infeasible,
                      -7 Infeasible/Inaccurate, -3 Indeterminate, -4 Failure, -5 Interrupted
    iter, pobj, dobj, resPri, resDual, resInfeas, resUnbdd, relGap, progress_count,
    memory_bytes      the other fields of the solver's Info record
    setupTime, solveTime
                      milliseconds, as the solver keeps them
    progress_*        with record_progress=1 (Marlet iteration): numpy arrays with one
                      entry per iteration (progress_step_kind is -2 in the row of the
                      iteration that ended the solve at its test); None otherwise
    objective         the objective in the caller's sense: pobj, or for a Problem read
                      from a file, the file's objective (its sense and constant applied)
    """

    __slots__ = ("x", "y", "s") + INFO_FIELDS + HISTORY_FIELDS + ("objective",)

    def __init__(self, fields, objective=None):
        for name in self.__slots__:
            setattr(self, name, fields.get(name))
        self.objective = objective

    @property
    def history(self):
        """The progress arrays as a dict keyed without the progress_ prefix, or None."""
        if self.progress_iteration is None:
            return None
        return {name[len("progress_"):]: getattr(self, name) for name in HISTORY_FIELDS}

    def __getstate__(self):
        return {name: getattr(self, name) for name in self.__slots__}

    def __setstate__(self, state):
        for name in self.__slots__:
            setattr(self, name, state.get(name))

    def __repr__(self):
        # A failed or interrupted solve has no iteration count (iter -1).
        after = f" after {self.iter} iterations" if self.iter >= 0 else ""
        return (f"<korvex.Result {self.status} ({self.statusVal}){after}: "
                f"pobj {self.pobj:.9g}, dobj {self.dobj:.9g}, resPri {self.resPri:.3g}, resDual {self.resDual:.3g}, "
                f"relGap {self.relGap:.3g}; setup {self.setupTime:.3g} ms, solve {self.solveTime:.3g} ms>")


class Problem(_Mapping):
    """A cone program read from a file, in the solver's form.

    A (scipy.sparse.csc_matrix), b, c (numpy arrays), cone (dict of the Cone fields):
        the problem minimise c'x subject to A x + s = b, s in K
    sense ("min" or "max"), objective_constant:
        the file's objective is c'x + objective_constant for "min" and
        -c'x + objective_constant for "max"
    source, format: the file name and "CBF", "SDPA" or "MPS"
    scalar_variables, variable_names: x[:scalar_variables] are the file's scalar
        variables in file order, named when the file names them (MPS)
    matrix_sides, matrix_offsets: the file's matrix variables (CBF PSDVAR); see
        matrix_variables()

    A Problem is a mapping of A, b, c, cone, sense and objective_constant, so both
    korvex.solve(problem) and korvex.solve(**problem) solve it.
    """

    _KEYS = ("A", "b", "c", "cone", "sense", "objective_constant")

    def __init__(self, A, b, c, cone, sense="min", objective_constant=0.0, source="", format="",
                 scalar_variables=None, variable_names=(), matrix_sides=(), matrix_offsets=()):
        self.A = A
        self.b = b
        self.c = c
        self.cone = cone
        self.sense = sense
        self.objective_constant = objective_constant
        self.source = source
        self.format = format
        self.scalar_variables = A.shape[1] if scalar_variables is None else scalar_variables
        self.variable_names = list(variable_names)
        self.matrix_sides = list(matrix_sides)
        self.matrix_offsets = list(matrix_offsets)

    def __getitem__(self, key):
        if key not in self._KEYS:
            raise KeyError(key)
        return getattr(self, key)

    def __iter__(self):
        return iter(self._KEYS)

    def __len__(self):
        return len(self._KEYS)

    def file_objective(self, solver_objective):
        """The objective in the file's sense, constant included, from the solver's c'x."""
        sign = -1.0 if self.sense == "max" else 1.0
        return sign * solver_objective + self.objective_constant

    def matrix_variables(self, x):
        """The file's matrix variables as dense symmetric numpy arrays, from the solver's x."""
        matrices = []
        for side, offset in zip(self.matrix_sides, self.matrix_offsets):
            packed = _np.asarray(x)[offset:offset + side * (side + 1) // 2]
            rows, cols = _np.tril_indices(side)
            order = _np.lexsort((rows, cols))  # the lower triangle by columns
            matrix = _np.zeros((side, side))
            matrix[rows[order], cols[order]] = packed
            off = ~_np.eye(side, dtype=bool)
            matrix[off] /= _np.sqrt(2.0)
            matrices.append(_np.tril(matrix) + _np.tril(matrix, -1).T)
        return matrices

    def __repr__(self):
        m, n = self.A.shape
        name = f" {self.source}" if self.source else ""
        return f"<korvex.Problem{name}: {self.sense} over {n} columns, {m} rows, {self.A.nnz} non-zeros>"


def _columns(A):
    """A as compressed columns with int32 indices and float64 values, converted once."""
    if not _sparse.issparse(A):
        A = _np.asarray(A, dtype=float)
        if A.ndim != 2:
            raise ValueError(f"A must be a matrix, not an array of {A.ndim} dimensions")
        A = _sparse.csc_matrix(A)
    elif A.format != "csc":
        A = A.tocsc()
    if A.nnz > _np.iinfo(_np.int32).max or max(A.shape) > _np.iinfo(_np.int32).max:
        raise ValueError("A is too large for the solver's 32-bit indices")
    if not A.has_canonical_format:
        A = A.copy()
        A.sum_duplicates()
    values = _np.ascontiguousarray(A.data, dtype=_np.float64)
    if not _np.all(_np.isfinite(values)):
        raise ValueError("A holds NaN or infinite values")
    return (A.shape, values, _np.ascontiguousarray(A.indices, dtype=_np.int32),
            _np.ascontiguousarray(A.indptr, dtype=_np.int32))


def _vector(name, v):
    v = _np.ascontiguousarray(v, dtype=_np.float64)
    if v.ndim == 2 and 1 in v.shape:
        v = v.reshape(-1)
    if v.ndim != 1:
        raise ValueError(f"{name} must be a vector")
    if not _np.all(_np.isfinite(v)):
        raise ValueError(f"{name} holds NaN or infinite values")
    return v


def _warm_point(warm):
    if warm is None:
        return None
    if isinstance(warm, Result):
        return (warm.x, warm.y, warm.s)
    if isinstance(warm, _Mapping):
        return (warm["x"], warm["y"], warm["s"])
    return tuple(warm)


def solve(A, b=None, c=None, cone=None, *, sense="min", objective_constant=0.0, warm=None, blas_threads=1,
          **settings):
    """Solves minimise c'x subject to A x + s = b, s in K and returns a Result.

    A       any scipy.sparse matrix (or a dense array), converted once to compressed
            columns with 32-bit indices; or a Problem from read(), or a dict with the
            keys A, b, c, cone (and optionally sense, objective_constant)
    b, c    vectors of m and n entries
    cone    dict with the fields of the solver's Cone record: free_vars, linear_vars,
            exp_triples, dual_exp_triples (counts), soc_sizes, sd_sizes (lists of sizes),
            power_exponents (list, each in [-1, 1]); missing fields are empty
    sense, objective_constant
            only tell how result.objective is computed: the data are always those of
            the minimisation above
    warm    a starting point: a previous Result, or (x, y, s); sets warm_start
    blas_threads
            BLAS threads of the semidefinite projections during this solve; the count
            in force (numpy's) comes back afterwards. One by default, like the command,
            because the rounding of the eigendecompositions depends on it: a solve gives
            the same bits in any process
    settings
            by field name, e.g. eps=1e-8, max_iters=10000, verbose=0,
            record_progress=1, dir="full_broyden"

    The console report goes to the process's standard output (verbose=0 keeps it quiet).
    The GIL is released while the solve runs; solves from several threads run one after
    another. Ctrl+C interrupts the solve, which ends with status -5, and then raises
    KeyboardInterrupt whose attribute result holds that Result.
    """
    if isinstance(A, _Mapping) and b is None and c is None and cone is None:
        problem = A
        missing = [key for key in ("A", "b", "c", "cone") if key not in problem]
        if missing:
            raise TypeError(f"the problem lacks {', '.join(missing)}")
        A, b, c, cone = problem["A"], problem["b"], problem["c"], problem["cone"]
        sense = problem.get("sense", sense)
        objective_constant = problem.get("objective_constant", objective_constant)
    if b is None or c is None or cone is None:
        raise TypeError("solve() takes A, b, c and cone, or one problem")
    if sense not in ("min", "max"):
        raise ValueError(f"sense is 'min' or 'max', not {sense!r}")
    _check_setting_names(settings)
    if not isinstance(cone, _Mapping):
        raise TypeError(f"cone must be a dict of {', '.join(CONE_FIELDS)}")
    (m, n), values, rows, starts = _columns(A)
    started = _time.perf_counter()
    fields = _korvex.solve_columns(m, n, values, rows, starts, _vector("b", b), _vector("c", c), dict(cone),
                                   settings, _warm_point(warm), blas_threads)
    interrupted = fields.pop("interrupted")
    sign = -1.0 if sense == "max" else 1.0
    result = Result(fields, sign * fields["pobj"] + objective_constant)
    if interrupted or result.statusVal == -5:
        # An interrupted solve leaves iter at -1 and solveTime NaN: say how long it ran, and
        # how many iterations its history holds when one was kept.
        kept = "" if result.progress_iteration is None else f", {len(result.progress_iteration)} iterations recorded"
        error = KeyboardInterrupt(f"korvex: solve interrupted after {_time.perf_counter() - started:.3g} s{kept}")
        error.result = result
        raise error
    return result


def read(path, format=None):
    """Reads a CBF (.cbf), SDPA sparse (.dat-s) or MPS (.mps) file, gzipped or not (told
    by content), and returns a Problem. The format goes by the file's name unless format
    is "cbf", "sdpa" or "mps". A file that does not follow its format raises ReadError
    (a ValueError) with "FILE:LINE: what is wrong"."""
    path = _os.fspath(path)
    if not _os.path.exists(path):
        raise FileNotFoundError(2, "No such file", path)
    fields = _korvex.read_file(path, format or "")
    A = _sparse.csc_matrix((fields["values"], fields["row_indices"], fields["column_starts"]),
                           shape=(fields["m"], fields["n"]))
    return Problem(A, fields["b"], fields["c"], fields["cone"], fields["sense"], fields["objective_constant"],
                   fields["source"], fields["format"], fields["scalar_variables"], fields["variable_names"],
                   fields["matrix_sides"], fields["matrix_offsets"])


from ._many import solve_many  # noqa: E402  (uses solve and read above)
