import os
import pathlib

import numpy as np
import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = ROOT / "examples"


@pytest.fixture
def examples():
    return EXAMPLES


@pytest.fixture
def child_env():
    """The environment of a child Python that imports the same korvex as this one."""
    import korvex

    env = dict(os.environ)
    package_parent = str(pathlib.Path(korvex.__file__).resolve().parents[1])
    env["PYTHONPATH"] = os.pathsep.join(filter(None, [package_parent, env.get("PYTHONPATH")]))
    return env


def check_optimality(A, b, c, cone, result, tol):
    """The optimality conditions of a solved program, measured from the returned vectors:
    primal and dual feasibility, s in K and y in K* for the orthant part, and a zero gap."""
    x, y, s = result.x, result.y, result.s
    scale = 1.0 + max(np.abs(b).max(), np.abs(c).max())
    assert np.linalg.norm(A @ x + s - b, np.inf) <= tol * scale
    assert np.linalg.norm(A.T @ y + c, np.inf) <= tol * scale
    assert abs(c @ x + b @ y) <= tol * scale * (1.0 + abs(c @ x))
    free, linear = cone.get("free_vars", 0), cone.get("linear_vars", 0)
    assert np.all(np.abs(s[:free]) <= tol * scale)
    assert np.all(s[free:free + linear] >= -tol * scale)
    assert np.all(y[free:free + linear] >= -tol * scale)
