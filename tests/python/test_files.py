import gzip
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time

import numpy as np
import pytest

import korvex
from conftest import check_optimality


def test_examples_reach_their_stated_optima(examples):
    production = korvex.read(examples / "production.mps")
    assert (production.sense, production.format) == ("max", "MPS")
    solved = korvex.solve(production, eps=1e-9, verbose=0, max_iters=100000)
    assert solved.statusVal == 1 and solved.objective == pytest.approx(36.0, rel=1e-6)
    np.testing.assert_allclose(solved.x[:production.scalar_variables], [2.0, 6.0], atol=1e-5)
    check_optimality(production.A, production.b, production.c, production.cone, solved, 1e-6)

    maxcut = korvex.read(str(examples / "maxcut.dat-s"))
    assert maxcut.format == "SDPA" and maxcut.cone["sd_sizes"] == [5]
    cut = korvex.solve(**maxcut, eps=1e-8, verbose=0, max_iters=100000)
    assert cut.objective == pytest.approx((25 + 5 * np.sqrt(5)) / 8, rel=1e-5)

    mean = korvex.solve(korvex.read(examples / "geometric_mean.cbf"), eps=1e-9, verbose=0, max_iters=100000)
    assert mean.objective == pytest.approx(0.3**0.3 * 0.7**0.7, rel=1e-6)

    entropy = korvex.read(examples / "entropy.cbf")
    assert entropy.cone["exp_triples"] + entropy.cone["dual_exp_triples"] == 4
    spread = korvex.solve(entropy, eps=1e-9, verbose=0, max_iters=100000)
    np.testing.assert_allclose(spread.x[:4], [0.35, 0.35, 0.15, 0.15], atol=1e-5)

    assert korvex.solve(korvex.read(examples / "infeasible.mps"), verbose=0).statusVal == -2
    assert korvex.solve(korvex.read(examples / "unbounded.cbf"), verbose=0).statusVal == -1


def test_matrix_variables_of_a_cbf_file(examples):
    # <I, X> + x1 = 1 with X psd: the file's matrix variable comes back dense and symmetric.
    path = examples.parent.parent / "shared" / "bench" / "mixed" / "cbfman_C1_psdvar_soc.cbf"
    if not path.exists():
        pytest.skip(f"{path} is not here")
    problem = korvex.read(path)
    result = korvex.solve(problem, eps=1e-9, verbose=0, max_iters=100000)
    assert result.objective == pytest.approx(0.70571049, rel=1e-6)
    (X,) = problem.matrix_variables(result.x)
    assert np.array_equal(X, X.T) and np.linalg.eigvalsh(X).min() >= -1e-7
    assert np.trace(X) + result.x[1] == pytest.approx(1.0, abs=1e-7)


def test_gzipped_files_and_read_errors(examples, tmp_path):
    packed = tmp_path / "portfolio.cbf"  # gzipped under a plain name: told by content
    with open(examples / "portfolio.cbf", "rb") as plain, gzip.open(packed, "wb") as out:
        shutil.copyfileobj(plain, out)
    plain, inflated = korvex.read(examples / "portfolio.cbf"), korvex.read(packed)
    assert (plain.A != inflated.A).nnz == 0 and np.array_equal(plain.b, inflated.b)
    assert plain.cone == inflated.cone and repr(plain).startswith("<korvex.Problem")

    broken = tmp_path / "broken.cbf"
    broken.write_text("VER\n3\nOBJSENSE\nSIDEWAYS\n")
    with pytest.raises(korvex.ReadError, match=r"broken\.cbf:4:"):
        korvex.read(broken)
    with pytest.raises(FileNotFoundError):
        korvex.read(tmp_path / "missing.cbf")
    with pytest.raises(ValueError, match="format takes cbf, sdpa or mps"):
        korvex.read(broken, format="lp")


def command_output(arguments, env, command=None):
    run = subprocess.run((command or [sys.executable, "-m", "korvex"]) + arguments, env=env, capture_output=True,
                         text=True, timeout=120)
    return run.returncode, run.stdout, run.stderr


def test_module_entry_is_the_command(examples, child_env):
    code, out, _ = command_output(["--help"], child_env)
    assert code == 0 and out.startswith("usage: korvex") and "Exit codes" in out
    code, out, _ = command_output([str(examples / "production.mps"), "--eps", "1e-9", "--max-iters", "100000"],
                                  child_env)
    assert code == 0 and "Solved" in out
    code, _, err = command_output([str(examples / "missing.cbf")], child_env)
    assert code == 3 and "missing.cbf" in err
    code, _, err = command_output(["--no-such-option", str(examples / "production.mps")], child_env)
    assert code == 2 and "--no-such-option" in err
    executable = pathlib.Path(korvex.__file__).parents[2] / "apps" / "korvex" / "korvex"
    if executable.exists():  # in a build tree: the executable next to it prints the same words
        def words(output):  # the times of two runs may differ
            return re.sub(r"\d+\.\d+s\b", "#s", repr(output))

        for arguments in (["--help"], ["--no-solve", str(examples / "maxcut.dat-s")]):
            assert words(command_output(arguments, child_env)) == words(
                command_output(arguments, child_env, [str(executable)]))


CHILD = """
import sys, numpy as np, scipy.sparse as sp, korvex
n = 300
rng = np.random.default_rng(1)
A = sp.vstack([sp.random(n, n, density=0.05, random_state=2), -sp.eye(n)]).tocsc()
try:
    print("solving", flush=True)
    korvex.solve(A, rng.standard_normal(2 * n), rng.standard_normal(n), {"free_vars": n, "linear_vars": n},
                 eps=1e-300, max_iters=2_000_000_000, verbose=0)
except KeyboardInterrupt as interrupt:
    print("KeyboardInterrupt", interrupt.result.statusVal, interrupt.result.status, flush=True)
    sys.exit(0)
print("not interrupted")
"""


def test_ctrl_c_interrupts_the_solve_then_raises_keyboard_interrupt(child_env):
    child = subprocess.Popen([sys.executable, "-c", CHILD], env=child_env, stdout=subprocess.PIPE, text=True)
    try:
        assert child.stdout.readline().strip() == "solving"
        time.sleep(1.0)  # well into the iteration
        child.send_signal(signal.SIGINT)
        out, _ = child.communicate(timeout=60)
    finally:
        child.kill()
    # The solver reports the interrupt on the console, then Python raises.
    assert out.splitlines()[-2:] == ["Failure:Interrupted", "KeyboardInterrupt -5 Interrupted"]
    assert child.returncode == 0
