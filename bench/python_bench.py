"""The Python module against the C library's bulk calls, measured in one run.

    PYTHONPATH=build/release/python /usr/bin/python3 bench/python_bench.py [--cases N] [--vars N] [--wide N]
        [--kernel NAME]

Every figure is a ratio: murvio.read and murvio.write against the bulk read
(murvWholeCaseIn) and bulk write (murvWholeCaseOut) of the same table;
murvio.read of a plain all-numeric file against numpy.fromfile of its
cases' bytes;
iter_chunks' peak memory against its bound (twice one chunk plus 64 MiB);
read_metadata of a file of --wide variables against murvOpenRead alone;
a sum over murvio.dask.read on two worker processes against one.
"""

import argparse
import os
import resource
import sys
import tempfile
import time

import numpy as np
import pandas as pd

import murvio
from murvio import _murvio


def timed(fn, reps=1):
    best = float("inf")
    for _ in range(reps):
        t = time.perf_counter()
        fn()
        best = min(best, time.perf_counter() - t)
    return best


def paired(a, b, reps):
    """Best times of two tasks over reps rounds, run alternately, so that a burst
    of load on the machine does not fall on one side only."""
    ta = tb = float("inf")
    for _ in range(reps):
        ta = min(ta, timed(a))
        tb = min(tb, timed(b))
    return ta, tb


def peak_rss_mib():
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--cases", type=int, default=1_000_000)
    ap.add_argument("--vars", type=int, default=100)
    ap.add_argument("--wide", type=int, default=1_000_000)
    ap.add_argument("--chunk", type=int, default=100_000)
    ap.add_argument("--reps", type=int, default=3)
    ap.add_argument("--kernel", default="", help="the codec kernel to use (scalar, sse2, sse41, avx2)")
    ap.add_argument("--dir", default="/dev/shm" if os.path.isdir("/dev/shm") else tempfile.gettempdir())
    a = ap.parse_args()
    tmp = tempfile.mkdtemp(dir=a.dir)
    results = []

    def report(name, ratio, goal, better="higher"):
        ok = ratio >= goal if better == "higher" else ratio <= goal
        results.append(ok)
        print(f"  {name:<58} {ratio:6.2f}   goal {'>=' if better == 'higher' else '<='} {goal}  {'met' if ok else 'NOT MET'}")

    kernel = _murvio.codec_kernel(a.kernel)
    print(f"python_bench: {a.cases} cases x {a.vars} numeric variables, best of {a.reps}, codec kernel {kernel}")
    for compress in (False, True):
        kind = "compressed" if compress else "plain"
        path = os.path.join(tmp, f"{kind}.murv")
        out = os.path.join(tmp, f"{kind}_py.murv")
        _murvio.bulk_write(path, a.cases, a.vars, compress)
        t_cr, t_pr = paired(lambda: _murvio.bulk_read(path), lambda: murvio.read(path), a.reps)
        with murvio.open(path) as f:
            t_cr1, t_pr1 = paired(lambda: _murvio.bulk_read(path), lambda: f.read(threads=False), a.reps)
        df = murvio.read(path)
        t_cw, t_pw = paired(lambda: _murvio.bulk_write(out + ".c", a.cases, a.vars, compress),
                            lambda d=df: murvio.write(d, out, compress=compress), a.reps)
        # A frame made column by column, as most frames are: its numbers are
        # stored by column, and a case is gathered from all of them.
        bycol = pd.DataFrame({c: df[c].to_numpy().copy() for c in df.columns})
        del df
        t_cw2, t_pw2 = paired(lambda: _murvio.bulk_write(out + ".c", a.cases, a.vars, compress),
                              lambda d=bycol: murvio.write(d, out, compress=compress), a.reps)
        del bycol
        print(f"  {kind}: C bulk read {t_cr:.3f} s, murvio.read {t_pr:.3f} s ({t_pr1:.3f} s on one thread, "
              f"C {t_cr1:.3f} s); C bulk write {t_cw:.3f} s, murvio.write {t_pw:.3f} s (frame by column "
              f"{t_pw2:.3f} s, C {t_cw2:.3f} s)")
        report(f"murvio.read speed / C bulk read ({kind})", t_cr / t_pr, 1.0 if compress else 0.5)
        report(f"murvio.read on one thread / C bulk read ({kind})", t_cr1 / t_pr1, 0.5)
        report(f"murvio.write speed / C bulk write ({kind})", t_cw / t_pw, 0.5)
        report(f"murvio.write of a frame by column / C bulk write ({kind})", t_cw2 / t_pw2, 0.5)
        for f in (out, out + ".c"):
            os.remove(f)

    # A plain all-numeric file read whole against numpy.fromfile of the
    # bytes of its cases (the least any reader of it does).
    path = os.path.join(tmp, "numeric.murv")
    rows, width = max(1, a.cases // 2), max(1, a.vars // 2)
    _murvio.bulk_write(path, rows, width, False)
    skip = os.path.getsize(path) - rows * width * 8
    t_np, t_rd = paired(lambda: np.fromfile(path, dtype="<f8", offset=skip).reshape(rows, width),
                        lambda: murvio.read(path), a.reps)
    print(f"  {rows} x {width} plain numeric: numpy.fromfile {t_np:.3f} s, murvio.read {t_rd:.3f} s")
    report("murvio.read time / numpy.fromfile time (plain numeric)", t_rd / t_np, 1.25, "lower")
    os.remove(path)

    # One read in a fresh process: its memory comes fresh from the system,
    # which on some machines costs more than the reading.
    path = os.path.join(tmp, "plain.murv")
    code = (f"import time, murvio\nfrom murvio import _murvio\n"
            f"t = time.perf_counter(); _murvio.bulk_read({path!r}); c = time.perf_counter() - t\n"
            f"t = time.perf_counter(); murvio.read({path!r}); p = time.perf_counter() - t\n"
            f"print(c, p)\n")
    import subprocess
    c, p = map(float, subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=True,
                                     env={**os.environ}).stdout.split())
    print(f"  first read in a fresh process (plain): C bulk read {c:.3f} s, murvio.read {p:.3f} s, "
          f"ratio {c / p:.2f} (for information)")

    # iter_chunks in a fresh process, so that its peak is its own.
    path = os.path.join(tmp, "compressed.murv")
    # The peak is read from VmHWM after resetting it (a child inherits its
    # parent's peak otherwise).
    code = (f"import murvio\n"
            f"def hwm():\n"
            f"    for line in open('/proc/self/status'):\n"
            f"        if line.startswith('VmHWM:'): return int(line.split()[1])\n"
            f"open('/proc/self/clear_refs', 'w').write('5')\n"
            f"base = hwm()\n"
            f"with murvio.open({path!r}) as f:\n"
            f"    n = sum(len(c) for c in f.iter_chunks(cases={a.chunk}))\n"
            f"print(n, (hwm() - base) / 1024)\n")
    import subprocess
    out = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=True,
                         env={**os.environ}).stdout.split()
    chunk_mib = a.chunk * a.vars * 8 / 2**20
    growth = float(out[1])
    print(f"  iter_chunks: {out[0]} cases, peak growth {growth:.1f} MiB, one chunk {chunk_mib:.1f} MiB")
    report("iter_chunks peak growth / (2 chunks + 64 MiB)", growth / (2 * chunk_mib + 64), 1.0, "lower")

    # A wide file: metadata against the plain open.
    wide = os.path.join(tmp, "wide.murv")
    murvio.write(pd.DataFrame(np.zeros((1, a.wide))).rename(columns=lambda i: f"v{i}"), wide, compress=False)
    t_open, t_meta = paired(lambda: _murvio.close(_murvio.open_read(wide)), lambda: murvio.read_metadata(wide), a.reps)
    print(f"  {a.wide} variables: murvOpenRead {t_open:.3f} s, read_metadata {t_meta:.3f} s")
    report("read_metadata time / murvOpenRead time", t_meta / t_open, 2.0, "lower")

    # Dask: two worker processes against one.
    try:
        from murvio import dask as murvio_dask
        from distributed import Client, LocalCluster
        path = os.path.join(tmp, "plain.murv")
        times = {}
        for workers in (1, 2):
            with LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                              dashboard_address=None) as cluster, Client(cluster):
                # A new frame for each run: the keys of its tasks are new, so
                # that no result of a run before is taken up again.
                def run():
                    return murvio_dask.read(path, cases_per_partition=max(1, a.cases // 8)).sum().compute()
                run()  # warm the workers
                times[workers] = timed(run, a.reps)
        print(f"  dask sum: 1 worker {times[1]:.3f} s, 2 workers {times[2]:.3f} s, speed-up {times[1] / times[2]:.2f}")
    except ImportError as e:
        print(f"  dask: not measured ({e})")

    for f in os.listdir(tmp):
        os.remove(os.path.join(tmp, f))
    os.rmdir(tmp)
    return 0


if __name__ == "__main__":
    sys.exit(main())
