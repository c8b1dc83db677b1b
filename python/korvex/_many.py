"""Many solves at once: over local processes, or over a Dask cluster."""

import os
from collections.abc import Mapping
from concurrent.futures import ProcessPoolExecutor


def _solve_one(item, settings):
    from . import read, solve

    if isinstance(item, (str, os.PathLike)):
        item = read(item)
    return solve(item, **settings)


def solve_many(problems, client=None, *, max_workers=None, blas_threads=1, **settings):
    """Solves every problem and returns the Results in the order of the input.

    problems     an iterable of Problems (from read()), dicts with A, b, c and cone, or
                 paths of problem files, which each worker reads itself
    client       None: a local pool of max_workers processes (default: one per core);
                 a dask.distributed Client: the solves are mapped over its cluster, so
                 that the same code runs on a laptop and on many machines
    blas_threads BLAS threads of each solve, as in solve()
    settings     the settings of every solve, by field name; verbose defaults to 0

    Results are picklable: they travel back from the workers as they are. The first
    problem that fails to read or is refused raises its exception here.
    """
    from . import _check_setting_names

    if isinstance(problems, (str, os.PathLike, Mapping)):
        raise TypeError("solve_many takes a list of problems; use solve for one")
    _check_setting_names(settings)
    settings = {"verbose": 0, **settings, "blas_threads": blas_threads}
    items = list(problems)
    if not items:
        return []
    if client is not None:
        futures = client.map(_solve_one, items, settings=settings, pure=False)
        return client.gather(futures)
    workers = min(max_workers or os.cpu_count() or 1, len(items))
    with ProcessPoolExecutor(max_workers=workers) as pool:
        return list(pool.map(_solve_one, items, [settings] * len(items)))
