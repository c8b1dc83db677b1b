import pickle

import numpy as np
import pytest
import scipy.sparse as sp

import korvex
from conftest import check_optimality

# minimise -x - 2y with x, y >= 0 and x + y <= 1: the optimum is -2 at (0, 1).
LP_A = sp.csc_matrix([[-1.0, 0.0], [0.0, -1.0], [1.0, 1.0]])
LP_B = np.array([0.0, 0.0, 1.0])
LP_C = np.array([-1.0, -2.0])
LP_CONE = {"linear_vars": 3}


@pytest.mark.parametrize("do_super_korvex", [0, 1])
def test_known_optima_and_their_conditions(do_super_korvex):
    result = korvex.solve(LP_A, LP_B, LP_C, LP_CONE, eps=1e-9, verbose=0, do_super_korvex=do_super_korvex,
                          max_iters=100000)
    assert (result.statusVal, result.status) == (1, "Solved")
    np.testing.assert_allclose(result.x, [0.0, 1.0], atol=1e-6)
    assert result.pobj == pytest.approx(-2.0, abs=1e-6) and result.objective == result.pobj
    check_optimality(LP_A, LP_B, LP_C, LP_CONE, result, 1e-6)

    # minimise x + y over the unit disc, a second-order cone (1, x, y): -sqrt(2).
    A = sp.csc_matrix([[0.0, 0.0], [-1.0, 0.0], [0.0, -1.0]])
    b = np.array([1.0, 0.0, 0.0])
    soc = korvex.solve(A, b, np.ones(2), {"soc_sizes": [3]}, eps=1e-9, verbose=0,
                       do_super_korvex=do_super_korvex, max_iters=100000)
    assert soc.statusVal == 1
    np.testing.assert_allclose(soc.x, [-np.sqrt(0.5)] * 2, atol=1e-6)
    assert soc.s[0] >= np.linalg.norm(soc.s[1:]) - 1e-8 and soc.y[0] >= np.linalg.norm(soc.y[1:]) - 1e-8


def test_certificates_of_infeasibility_and_unboundedness():
    # x >= 1 and x <= 0: y with b'y = -1, A'y = 0, y >= 0.
    A = sp.csc_matrix([[-1.0], [1.0]])
    b = np.array([-1.0, 0.0])
    infeasible = korvex.solve(A, b, np.array([1.0]), {"linear_vars": 2}, verbose=0, eps=1e-9)
    assert infeasible.statusVal == -2 and np.isnan(infeasible.x).all() and not np.isfinite(infeasible.pobj)
    assert b @ infeasible.y == pytest.approx(-1.0)
    assert np.abs(A.T @ infeasible.y).max() <= 1e-7 and infeasible.y.min() >= -1e-9

    # minimise -x with x >= 0: x and s with c'x = -1, A x + s = 0, s >= 0.
    unbounded = korvex.solve(sp.csc_matrix([[-1.0]]), np.zeros(1), np.array([-1.0]), {"linear_vars": 1},
                             verbose=0, eps=1e-9)
    assert unbounded.statusVal == -1 and np.isnan(unbounded.y).all()
    assert -unbounded.x[0] == pytest.approx(-1.0) and unbounded.s[0] - unbounded.x[0] == pytest.approx(0.0)


def test_every_input_form_gives_the_same_bits():
    reference = korvex.solve(LP_A, LP_B, LP_C, LP_CONE, verbose=0)
    dense = LP_A.toarray()
    for A in (sp.coo_matrix(dense), sp.csr_matrix(dense), dense, sp.csc_matrix(dense, dtype=np.float32),
              sp.csc_array(dense)):
        again = korvex.solve(A, list(LP_B), LP_C.reshape(-1, 1), LP_CONE, verbose=0)
        assert again.iter == reference.iter
        assert np.array_equal(again.x, reference.x) and np.array_equal(again.y, reference.y)
    problem = {"A": LP_A, "b": LP_B, "c": LP_C, "cone": LP_CONE}
    assert np.array_equal(korvex.solve(problem, verbose=0).x, reference.x)
    assert np.array_equal(korvex.solve(**problem, verbose=0).s, reference.s)
    copy = pickle.loads(pickle.dumps(reference))
    assert np.array_equal(copy.y, reference.y) and copy.status == reference.status


def test_result_fields_history_and_warm_start():
    result = korvex.solve(LP_A, LP_B, LP_C, LP_CONE, verbose=0, eps=1e-8, record_progress=1)
    for name in korvex.INFO_FIELDS:
        assert getattr(result, name) is not None, name
    assert result.setupTime >= 0 and result.solveTime >= 0 and result.iter == result.progress_count
    rows = result.progress_count + 1  # the last row is the iterate that passed the test
    history = result.history
    assert all(len(column) == rows for column in history.values())
    assert np.array_equal(history["iteration"], np.arange(rows))
    assert history["step_kind"][-1] == -2 and set(history["step_kind"][:-1]) <= {-1, 0, 1, 2}
    assert history["res_pri"][-1] == result.resPri and history["primal_cost"][-1] == result.pobj
    assert np.all(np.diff(history["time_ms"]) >= 0)

    quiet = korvex.solve(LP_A, LP_B, LP_C, LP_CONE, verbose=0, eps=1e-8)
    assert quiet.progress_iteration is None and quiet.history is None
    warm = korvex.solve(LP_A, LP_B, LP_C, LP_CONE, verbose=0, eps=1e-8, warm=quiet)
    assert warm.statusVal == 1 and warm.iter < quiet.iter


def test_bad_input_is_refused_with_a_clear_exception():
    def attempt(*args, **kwargs):
        return korvex.solve(*(args or (LP_A, LP_B, LP_C, LP_CONE)), verbose=0, **kwargs)

    cases = [
        (TypeError, "did you mean 'max_iters'", dict(max_iter=10)),
        (TypeError, "takes a whole number", dict(max_iters=10.0)),
        (TypeError, "takes a real number", dict(eps="small")),
        (TypeError, "kept by the module", dict(progress_capacity=5)),
        (ValueError, "alpha must be in (0,2) (alpha=2.5)", dict(alpha=2.5)),
        (ValueError, "max_iters must be positive", dict(max_iters=0, eps=-1.0)),
        (ValueError, "eps must be finite", dict(eps=float("nan"))),
        (ValueError, "dir takes restarted_broyden", dict(dir="newton")),
        (ValueError, "warm_start needs a point", dict(warm_start=1)),
    ]
    for error, words, settings in cases:
        with pytest.raises(error) as caught:
            attempt(**settings)
        assert words in str(caught.value), settings
    assert attempt(dir="full_broyden", eps=1e-7).statusVal == 1

    for error, words, args in [
        (ValueError, "b must be a vector of 3 entries", (LP_A, LP_B[:2], LP_C, LP_CONE)),
        (ValueError, "the cone describes 2 rows but A has 3", (LP_A, LP_B, LP_C, {"linear_vars": 2})),
        (TypeError, "unknown cone field 'lp'", (LP_A, LP_B, LP_C, {"lp": 3})),
        (ValueError, "every exponent must lie in [-1, 1]", (LP_A, LP_B, LP_C, {"power_exponents": [1.5]})),
        (ValueError, "A holds NaN", (sp.csc_matrix([[np.nan, 0], [0, 1], [1, 1]]), LP_B, LP_C, LP_CONE)),
        (ValueError, "c holds NaN", (LP_A, LP_B, np.array([1.0, np.inf]), LP_CONE)),
    ]:
        with pytest.raises(error) as caught:
            attempt(*args)
        assert words in str(caught.value)


def test_repeated_solves_keep_no_memory():
    # Each solve with a history hands the solver 2500 rows of ten arrays (170 kB): kept
    # by mistake, a thousand solves would hold 170 MB more.
    def resident_kb():
        with open("/proc/self/status") as status:
            return int(status.read().split("VmRSS:")[1].split()[0])

    for _ in range(50):
        korvex.solve(LP_A, LP_B, LP_C, LP_CONE, verbose=0, record_progress=1)
    before = resident_kb()
    for _ in range(1000):
        korvex.solve(LP_A, LP_B, LP_C, LP_CONE, verbose=0, record_progress=1)
    assert resident_kb() - before < 20_000
