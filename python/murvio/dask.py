"""Partitioned reading on Dask: each partition a range of cases, read by its
own handle through a seek."""

from __future__ import annotations

import dask
import dask.dataframe as dd
import pandas as pd

from . import MurvioFile


def _read_part(path: str, start: int, stop: int, columns, labels: bool, missing: str, dates: bool) -> pd.DataFrame:
    with MurvioFile(path) as f:
        # One thread: the partitions are what runs in parallel.
        return f.read(columns=columns, cases=slice(start, stop), labels=labels, missing=missing, dates=dates,
                      threads=False)


def read(path, cases_per_partition: int = 100_000, columns=None, labels: bool = False, missing: str = "nan",
         dates: bool = True) -> dd.DataFrame:
    """A dask DataFrame of the file: partitions of `cases_per_partition` cases,
    indexed by case number. The partition boundaries and the dtypes come from
    the metadata; no case is read until the graph runs."""
    if cases_per_partition < 1:
        raise ValueError("cases_per_partition must be at least 1")
    path = str(path)
    with MurvioFile(path) as f:
        total = f.metadata.cases
        if total < 0:  # the file does not state its count: count the cases once
            total = sum(len(chunk) for chunk in f.iter_chunks(cases=1_000_000, columns=[f.metadata.variables[0].name]))
        meta = f.read(columns=columns, cases=slice(0, 0), labels=labels, missing=missing, dates=dates)
    starts = list(range(0, total, cases_per_partition)) or [0]
    parts = [dask.delayed(_read_part)(path, s, min(s + cases_per_partition, total), columns, labels, missing, dates)
             for s in starts]
    divisions = tuple(starts) + (max(total - 1, 0),)
    return dd.from_delayed(parts, meta=meta, divisions=divisions, verify_meta=False)
