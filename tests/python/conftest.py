"""What the pytest files share: the C++ reference runner, random inputs of every pixel type, and
the checks that the module must import from a staging install."""

import os
import pathlib
import re
import subprocess

import numpy as np
import pytest

SOURCE_TREE = pathlib.Path(__file__).resolve().parents[2]

# The seven pixel types of a range image, with the marker of an invalid integer pixel (0).
PIXEL_DTYPES = [np.uint8, np.int8, np.uint16, np.int16, np.int32, np.float32, np.float64]
INTEGER_DTYPES = PIXEL_DTYPES[:5]
FLOAT_DTYPES = PIXEL_DTYPES[5:]


def _import_kivlut():
    import kivlut

    where = pathlib.Path(kivlut.__file__).resolve()
    # The suite tests what a user installs, never a copy in the source or build tree.
    if SOURCE_TREE in where.parents and "python-stage" not in where.parts:
        raise RuntimeError(f"kivlut imported from {where}, not from the staging install")
    return kivlut


@pytest.fixture(scope="session")
def kivlut():
    return _import_kivlut()


def random_range_pixels(rng, dtype, shape, invalid_fraction=0.1):
    """Random pixels over much of the type's range, with invalid ones: 0 for the integer types,
    NaN, both infinities and -FLT_MAX for the float types."""
    dtype = np.dtype(dtype)
    if dtype.kind in "ui":
        info = np.iinfo(dtype)
        low = max(info.min, -30000)
        high = min(info.max, 30000)
        pixels = rng.integers(low, high, size=shape, endpoint=True).astype(dtype)
        holes = rng.random(shape) < invalid_fraction
        pixels[holes] = 0
    else:
        pixels = (rng.standard_normal(shape) * 40.0 + 10.0).astype(dtype)
        markers = np.array([np.nan, np.inf, -np.inf, -np.finfo(np.float32).max], dtype=dtype)
        holes = rng.random(shape) < invalid_fraction
        pixels[holes] = rng.choice(markers, size=int(holes.sum()))
    return pixels


class CallResult:
    """What one call of the reference runner gave back."""

    def __init__(self, prefix):
        self.prefix = prefix
        self.lines = {}
        text = pathlib.Path(f"{prefix}.txt")
        if not text.exists():
            raise AssertionError(f"the reference runner wrote no result for {prefix.name}")
        for line in text.read_text().splitlines():
            key, _, rest = line.partition(" ")
            self.lines[key] = rest

    def has(self, key):
        return key in self.lines

    @property
    def status(self):
        return int(self.lines["status"])

    def int(self, key):
        return int(self.lines[key])

    def float(self, key):
        return float(self.lines[key])

    def array(self, name):
        return np.load(f"{self.prefix}.{name}.npy")

    @property
    def out(self):
        return self.array("out")

    @property
    def color(self):
        return tuple(int(v) for v in self.lines["color"].split())

    @property
    def para(self):
        fields = self.lines["para"].split()
        return [float(v) for v in fields[:5]] + [int(v) for v in fields[5:]]

    def vector(self, name):
        """The items of an appended KivVarArray: arrays for images, ints, floats."""
        items = []
        for i in range(int(self.lines[f"{name}_length"])):
            kind, _, value = self.lines[f"{name}_{i}"].partition(" ")
            if kind == "image":
                items.append(self.array(f"{name}_{i}"))
            elif kind == "int":
                items.append(int(value))
            elif kind == "double":
                items.append(float(value))
            else:
                items.append(None)
        return items


def _token(value):
    if isinstance(value, bool):
        return str(int(value))
    if isinstance(value, float):
        return repr(value)
    if isinstance(value, (tuple, list)):
        return ",".join(_token(v) for v in value)
    # The job file is split at spaces; the runner turns %20 back into one.
    return str(value).replace("%", "%25").replace(" ", "%20")


class Reference:
    """Collects calls, runs them in one process of the C++ reference runner, and hands back a
    CallResult for each."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.folder.mkdir(parents=True, exist_ok=True)
        self.runner = os.environ.get("KIVLUT_REFERENCE_RUNNER")
        if not self.runner:
            pytest.fail("KIVLUT_REFERENCE_RUNNER is not set: run the suite through ctest")
        self.jobs = []
        self.count = 0

    def add(self, op, **arguments):
        """Queues a call; arrays are written as .npy files. Returns the call's prefix."""
        self.count += 1
        prefix = self.folder / f"call{self.count}"
        tokens = [str(prefix), op]
        for key, value in arguments.items():
            if value is None:
                continue
            if isinstance(value, np.ndarray):
                path = self.folder / f"call{self.count}.in_{key}.npy"
                np.save(path, np.ascontiguousarray(value))
                value = path
            tokens.append(f"{key}={_token(value)}")
        self.jobs.append(" ".join(tokens))
        return prefix

    def run(self):
        """Runs every queued call; returns their results in order."""
        jobfile = self.folder / f"jobs{self.count}.txt"
        jobfile.write_text("\n".join(self.jobs) + "\n")
        completed = subprocess.run(
            [self.runner, str(jobfile)], capture_output=True, timeout=600
        )
        if completed.returncode != 0:
            raise AssertionError(
                f"reference runner failed ({completed.returncode}): "
                + completed.stderr.decode(errors="replace")[-2000:]
            )
        prefixes = [line.split(" ", 1)[0] for line in self.jobs]
        self.jobs = []
        return [CallResult(pathlib.Path(p)) for p in prefixes]

    def call(self, op, **arguments):
        self.add(op, **arguments)
        return self.run()[0]


@pytest.fixture
def reference(tmp_path):
    return Reference(tmp_path / "reference")


def range_arguments(pixels, resolution=(1.0, 1.0, 1.0), offset=(0.0, 0.0, 0.0), type=0):
    """The runner's arguments for a range image."""
    return dict(
        img=pixels,
        res=tuple(float(v) for v in resolution),
        off=tuple(float(v) for v in offset),
        type=type,
    )


def _status_constants():
    """The status constants of KivLUTStatus.h, read from the header itself."""
    header = (SOURCE_TREE / "include" / "KivLUTStatus.h").read_text()
    return [int(v) for v in re.findall(r"constexpr long LUT_\w+ = (\d+);", header)]


@pytest.fixture(scope="session")
def status_names(tmp_path_factory):
    """KivLUTStatusName for every constant and for -1 (the fraction overload's refusal), from C++."""
    reference = Reference(tmp_path_factory.mktemp("status_names"))
    codes = _status_constants() + [-1]
    for code in codes:
        reference.add("status_name", status=code)
    return {code: r.lines["name"] for code, r in zip(codes, reference.run())}


def assert_lut_error(kivlut, status_names, excinfo, status):
    """The raised LUTError carries the C++ status and KivLUTStatusName of it."""
    error = excinfo.value
    assert isinstance(error, kivlut.LUTError)
    assert error.status == status, f"status {error.status}, C++ gave {status}"
    assert error.name == status_names[status]


def same_values(a, b):
    """Equal lists of numbers, NaN matching NaN (a record's break values may be NaN)."""
    a, b = list(a), list(b)
    return len(a) == len(b) and all(
        (x != x and y != y) or (x == y and type(x) is type(y)) for x, y in zip(a, b)
    )
