"""Partitioned reading on Dask: each partition a range of cases, read by its
own handle through a seek."""

from __future__ import annotations

import dask
import dask.dataframe as dd
import pandas as pd

from . import MurvioFile, _path


def _read_part(path: str, start: int, count: int, last: bool, columns, labels: bool, missing: str, dates: bool,
               strict: bool) -> pd.DataFrame:
    """The `count` cases from case `start` on; the last partition reads on to
    the end of the data, so that cases past the planned count are seen. A
    partition that finds fewer cases than planned (the plan came from the
    header) or more is damage: DamageError with `strict`, else a warning
    and the cases found."""
    with MurvioFile(path) as f:
        if missing not in ("nan", "keep"):
            raise ValueError("missing must be 'nan' or 'keep'")
        plan = f._plan(f._columns(columns), labels, missing, dates)
        # One thread: the partitions are what runs in parallel.
        df, n, code = f._read(plan, start, -1 if last else count)
        end = None if last else start + count
        message = f._damage(start + n, code, end)
        if message is None and n < count:
            # Fewer than planned though the header's count is met: the plan
            # came from a count the header does not state.
            message = f"{f.path}: damaged: the file ends after case {start + n}"
        f._report(message, code, strict, stacklevel=2)
        return df


def read(path, cases_per_partition: int = 100_000, columns=None, labels: bool = False, missing: str = "nan",
         dates: bool = True, strict: bool = True) -> dd.DataFrame:
    """A dask DataFrame of the file: partitions of `cases_per_partition` cases,
    indexed by case number. The partition boundaries and the dtypes come from
    the metadata; no case is read until the graph runs. A damaged file (a
    partition that finds fewer cases than planned, or the last one more)
    raises murvio.DamageError where the graph is computed; with
    strict=False the partitions keep the cases they find, with a
    DamageWarning in the process that reads them."""
    if cases_per_partition < 1:
        raise ValueError("cases_per_partition must be at least 1")
    path = _path(path)
    with MurvioFile(path) as f:
        total = f.metadata.cases
        # A header may state any count: the plan holds no more cases than
        # the file's size allows (the partitions then find the shortfall).
        total = min(total, f._hold(0)) if total >= 0 else total
        if total < 0:  # the file does not state its count: count the cases once
            total = sum(len(chunk) for chunk in f.iter_chunks(cases=1_000_000, strict=strict,
                                                              columns=[f.metadata.variables[0].name]))
        meta = f.read(columns=columns, cases=slice(0, 0), labels=labels, missing=missing, dates=dates)
    starts = list(range(0, total, cases_per_partition)) or [0]
    parts = [dask.delayed(_read_part)(path, s, min(cases_per_partition, total - s), s == starts[-1], columns, labels,
                                      missing, dates, strict)
             for s in starts]
    divisions = tuple(starts) + (max(total - 1, 0),)
    return dd.from_delayed(parts, meta=meta, divisions=divisions, verify_meta=False)
