import numpy as np
import pytest

import korvex


def problems_and_references(examples):
    paths = [examples / name for name in ("production.mps", "maxcut.dat-s", "portfolio.cbf", "infeasible.mps")]
    settings = dict(eps=1e-7, max_iters=50000)
    references = [korvex.solve(korvex.read(path), verbose=0, **settings) for path in paths]
    # Files, problems and dicts may be mixed; each worker reads a path itself.
    items = [str(paths[0]), korvex.read(paths[1]), dict(korvex.read(paths[2])), paths[3]]
    return items, references, settings


def check_same_results(results, references):
    assert [r.statusVal for r in results] == [r.statusVal for r in references] == [1, 1, 1, -2]
    for result, reference in zip(results, references):
        assert result.iter == reference.iter and result.objective == reference.objective
        assert np.array_equal(result.y, reference.y)


def test_solve_many_on_local_processes(examples):
    items, references, settings = problems_and_references(examples)
    check_same_results(korvex.solve_many(items, max_workers=2, **settings), references)
    assert korvex.solve_many([]) == []
    with pytest.raises(TypeError, match="list of problems"):
        korvex.solve_many(korvex.read(examples / "production.mps"))
    with pytest.raises(TypeError, match="unknown setting"):
        korvex.solve_many(items, epsilon=1)


@pytest.mark.filterwarnings("ignore::DeprecationWarning")  # tornado's, inside distributed
def test_solve_many_on_a_dask_cluster(examples):
    distributed = pytest.importorskip("distributed")
    items, references, settings = problems_and_references(examples)
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None) as cluster:
        with distributed.Client(cluster) as client:
            check_same_results(korvex.solve_many(items, client=client, **settings), references)
