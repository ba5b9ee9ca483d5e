"""murv stats and murv freq against numpy on the same data, and files whose
dictionaries only the library can make (grouped print formats for cat
--formatted).

Usage: summary_test.py MURV LIBMURVIO

Writes a file through the C library (ctypes): values around 1e9 that differ
only in their last digits (a sum of squares loses them), user-missing values
as discrete values and as a range, system-missing values, codes counted by a
direct table and by a hash table, and a weight variable with missing, zero
and negative weights. Then compares murv's JSON with numpy's figures.
"""
import ctypes
import json
import os
import subprocess
import sys
import tempfile

import numpy as np

murv, lib_path = sys.argv[1], sys.argv[2]
# murv carries its own sanitizer runtime, if any: it runs without the one
# preloaded into this interpreter and with its leak checks.
MURV_ENV = {k: v for k, v in os.environ.items() if k not in ("LD_PRELOAD", "ASAN_OPTIONS")}
lib = ctypes.CDLL(lib_path)
lib.murvSysmisVal.restype = ctypes.c_double
lib.murvSetVarNMissingValues.argtypes = [ctypes.c_int, ctypes.c_char_p, ctypes.c_int] + [ctypes.c_double] * 3
SYSMIS = lib.murvSysmisVal()

rng = np.random.default_rng(25)
n = 100_000
big = 1e9 + rng.normal(0, 1, n)                     # the digits that matter are the last ones
y = rng.normal(50, 10, n).round(1)
y[rng.random(n) < 0.05] = 99                        # user-missing (discrete 98, 99)
y[rng.random(n) < 0.03] = -5                        # user-missing (range -10 to -1)
y[rng.random(n) < 0.05] = SYSMIS
code = rng.integers(0, 10, n).astype(float)
odd = rng.random(n) < 0.1                           # beyond the direct table of whole numbers 0-255
code[odd] = rng.choice([-1.5, 300, 1e6, 2.25, -0.0], size=odd.sum())
code[rng.random(n) < 0.02] = SYSMIS
w = rng.integers(1, 5, n).astype(float) * 0.5
w[rng.random(n) < 0.01] = 0
w[rng.random(n) < 0.01] = -1
w[rng.random(n) < 0.01] = SYSMIS
data = np.column_stack([big, y, code, w])

failures = []


def check(what, got, want, rtol):
    if want is None or got is None:
        ok = got is None and want is None
    else:
        ok = bool(np.isclose(got, want, rtol=rtol, atol=0))
    if not ok:
        failures.append(f"{what}: murv {got!r}, numpy {want!r}")


with tempfile.TemporaryDirectory() as tmp:
    path = f"{tmp}/summary.murv".encode()
    h = ctypes.c_int(-1)
    assert lib.murvOpenWrite(path, ctypes.byref(h)) == 0
    for name in (b"big", b"y", b"code", b"w"):
        assert lib.murvSetVarName(h, name, 0) == 0
    assert lib.murvSetVarNMissingValues(h, b"y", 2, 98.0, 99.0, 0.0) == 0
    assert lib.murvSetCaseWeightVar(h, b"w") == 0
    assert lib.murvCommitHeader(h) == 0
    records = np.ascontiguousarray(data, dtype="<f8")
    for row in records:
        assert lib.murvWholeCaseOut(h, row.tobytes()) == 0
    assert lib.murvCloseWrite(h) == 0
    # The range and the discrete values cannot be set together on one
    # variable; a second file gives y a range.
    path2 = f"{tmp}/range.murv".encode()
    h2 = ctypes.c_int(-1)
    assert lib.murvOpenWrite(path2, ctypes.byref(h2)) == 0
    assert lib.murvSetVarName(h2, b"y", 0) == 0
    assert lib.murvSetVarNMissingValues(h2, b"y", -3, -10.0, -1.0, 99.0) == 0
    assert lib.murvCommitHeader(h2) == 0
    for v in np.ascontiguousarray(y, dtype="<f8"):
        assert lib.murvWholeCaseOut(h2, v.tobytes()) == 0
    assert lib.murvCloseWrite(h2) == 0

    def run(*args):
        return json.loads(subprocess.run([murv, *args], check=True, capture_output=True, text=True, env=MURV_ENV).stdout)

    good_w = (w > 0) & (w != SYSMIS)
    for weighted in (True, False):
        flags = [] if weighted else ["--unweighted"]
        stats = {v["name"]: v for v in run("stats", path.decode(), *flags, "--json")["variables"]}
        # Two variables side by side and without user-missing values take the
        # way that sums them where they lie in the record.
        pair = {v["name"]: v for v in run("stats", path.decode(), "code", "w", *flags, "--json")["variables"]}
        if pair["code"] != stats["code"]:
            failures.append(f"code alone and with the others differ: {pair['code']} {stats['code']}")
        keep = good_w if weighted else np.ones(n, bool)
        weights = np.where(keep, w, 0) if weighted else np.ones(n)
        for name, x, missing in (("big", big, big == SYSMIS),
                                 ("y", y, (y == SYSMIS) | (y == 98) | (y == 99)),
                                 ("code", code, code == SYSMIS)):
            valid = keep & ~missing
            xv, wv = x[valid], weights[valid]
            total = wv.sum()
            mean = np.sum(wv * xv) / total
            sd = np.sqrt(np.sum(wv * (xv - mean) ** 2) / (total - 1))
            s = stats[name]
            tag = f"{name} ({'weighted' if weighted else 'unweighted'})"
            check(f"{tag} n", s["n"], total, 1e-15)
            check(f"{tag} missing", s["missing"], weights[keep & missing].sum(), 1e-15)
            check(f"{tag} mean", s["mean"], mean, 1e-14)
            check(f"{tag} sd", s["sd"], sd, 1e-9)
            check(f"{tag} min", s["min"], xv.min(), 0)
            check(f"{tag} max", s["max"], xv.max(), 0)
            if not weighted:
                check(f"{tag} sd against numpy's std", s["sd"], np.std(xv, ddof=1), 1e-9)

        freq = run("freq", path.decode(), "code", *flags, "--json")["variables"][0]
        cv = code[keep & (code != SYSMIS)]
        values, idx = np.unique(cv, return_inverse=True)
        counts = np.bincount(idx, weights=weights[keep & (code != SYSMIS)])
        got = [(r["value"], r["count"]) for r in freq["values"]]
        if [v for v, _ in got] != list(values):
            failures.append(f"freq code values: {[v for v, _ in got]} != {list(values)}")
        for (v, c), want in zip(got, counts):
            check(f"freq code {v} count", c, want, 1e-15)
        check("freq code system-missing", freq["system_missing"]["count"], weights[keep & (code == SYSMIS)].sum(), 1e-15)
        check("freq code cumulative", freq["values"][-1]["cumulative_percent"], 100.0, 1e-12)

    # A range with a discrete value: user-missing in stats and listed apart in freq.
    s = run("stats", path2.decode(), "--json")["variables"][0]
    valid = (y != SYSMIS) & ~((y >= -10) & (y <= -1)) & (y != 99)
    check("range: n", s["n"], valid.sum(), 0)
    check("range: mean", s["mean"], y[valid].mean(), 1e-14)
    f = run("freq", path2.decode(), "y", "--json")["variables"][0]
    listed = sorted(r["value"] for r in f["user_missing"])
    if listed != [-5.0, 99.0]:
        failures.append(f"range: user-missing values listed {listed}")

    # A file cut inside a case, read in parts on several threads: the cases
    # before the cut are counted, the command fails naming the first case lost.
    whole = open(path, "rb").read()
    cut = f"{tmp}/cut.murv"
    header = len(whole) - n * 32
    kept = 60_001
    open(cut, "wb").write(whole[:header + kept * 32 + 20])
    r = subprocess.run([murv, "stats", cut, "--json", "--unweighted", "big"], capture_output=True, text=True,
                       env=MURV_ENV)
    if r.returncode != 4 or f"damaged: the file ends inside case {kept + 1} of the {n} it states" not in r.stderr:
        failures.append(f"cut file: exit {r.returncode}, {r.stderr.strip()}")
    else:
        s = json.loads(r.stdout)
        check("cut file: cases", s["cases"], kept, 0)
        check("cut file: mean", s["variables"][0]["mean"], big[:kept].mean(), 1e-14)
        check("cut file: sd", s["variables"][0]["sd"], np.std(big[:kept], ddof=1), 1e-9)

    # Grouped formats through cat --formatted: CSV quotes the fields that hold
    # its delimiter, TSV and JSON do not need to.
    grouped = f"{tmp}/grouped.murv".encode()
    h3 = ctypes.c_int(-1)
    assert lib.murvOpenWrite(grouped, ctypes.byref(h3)) == 0
    for name, fmt in ((b"a", (3, 2, 12)), (b"b", (4, 0, 10)), (b"c", (32, 1, 9))):
        assert lib.murvSetVarName(h3, name, 0) == 0
        assert lib.murvSetVarPrintFormat(h3, name, *fmt) == 0
    assert lib.murvCommitHeader(h3) == 0
    assert lib.murvWholeCaseOut(h3, np.array([1234567.891, -1234.5, 1234.5], dtype="<f8").tobytes()) == 0
    assert lib.murvCloseWrite(h3) == 0
    for form, want in (("--csv", '"1,234,567.89","-$1,235","1.234,5"'), ("--tsv", "1,234,567.89\t-$1,235\t1.234,5"),
                       ("--json", '{"a":"1,234,567.89","b":"-$1,235","c":"1.234,5"}')):
        out = subprocess.run([murv, "cat", grouped.decode(), "--formatted", "--no-header", form],
                             check=True, capture_output=True, text=True, env=MURV_ENV).stdout
        if out != want + "\n":
            failures.append(f"cat --formatted {form}: {out!r}")

for f in failures:
    print("FAIL:", f)
print(f"{len(failures)} failures")
sys.exit(1 if failures else 0)
