"""Dask: partitioned reading, each partition a range of cases read by its
own handle through a seek; and writing a frame's partitions in order
through one writer."""

from __future__ import annotations

import math
import os
import tempfile

import dask
import dask.dataframe as dd
import pandas as pd

from . import MurvioFile, _as_dict, _bytes, _destination, _file_info, _frame_columns, _keep_owner, _murvio, _path


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


def _byte_widths(part: pd.DataFrame) -> pd.DataFrame:
    """The longest value of each column of a partition, in bytes as write()
    stores it (a value cut at a NUL counts whole: the width is an upper
    bound)."""
    def width(x) -> int:
        if x is None or x is pd.NA or x is pd.NaT or (isinstance(x, float) and math.isnan(x)):
            return 0
        return len(x) if isinstance(x, bytes) else len(_bytes(str(x)))
    return pd.DataFrame({c: [max(map(width, part[c]), default=0)] for c in part.columns}, dtype="int64")


def write(ddf: dd.DataFrame, path, metadata=None, compress: bool = True) -> None:
    """Writes a dask DataFrame as one system file: its partitions in order,
    computed one at a time (on whichever scheduler is in use) and written
    through one writer in this process, so that memory holds one partition.
    Columns become variables as murvio.write makes them. String columns are
    measured first, in a pass over the partitions of their own (the graph is
    then computed twice); categories must be known (they are made known
    otherwise, in a pass too). The file is written beside the destination
    and moved over it only when every partition is in, with the rules of
    murvio.write for the destination; a failure in any partition leaves
    the destination as it was and no temporary file."""
    if not isinstance(ddf, dd.DataFrame):
        raise TypeError(f"murvio.dask.write() needs a dask DataFrame, not {type(ddf).__name__}")
    target, before = _destination(path)
    meta = _as_dict(metadata)
    empty = ddf._meta
    for c in empty.columns:
        if isinstance(empty[c].dtype, pd.CategoricalDtype) and not ddf[c].cat.known:
            ddf = ddf.assign(**{c: ddf[c].cat.as_known()})
            empty = ddf._meta
    text = [c for c in empty.columns if not isinstance(empty[c].dtype, pd.CategoricalDtype)
            and (empty[c].dtype == object or pd.api.types.is_string_dtype(empty[c].dtype))]
    widths = {}
    if text:
        counted = ddf[text].map_partitions(_byte_widths, meta=pd.DataFrame({c: pd.Series(dtype="int64") for c in text}))
        widths = {str(c): int(w) for c, w in counted.max().compute().items()}
    defs, _, _ = _frame_columns(empty, meta, widths, stacklevel=3)
    info = _file_info(meta)
    types = [s["type"] for s in defs]

    directory, name = os.path.split(target)
    fd, scratch = tempfile.mkstemp(prefix=f".{name}.", suffix=".tmp", dir=directory or ".")
    os.close(fd)
    try:
        handle = _murvio.begin_write(scratch, bool(compress), defs, info)
        try:
            for i in range(ddf.npartitions):
                part = ddf.get_partition(i).compute()
                if isinstance(part, pd.Series):
                    part = part.to_frame()
                got, columns, blocks = _frame_columns(part, meta, widths, stacklevel=3)
                if [s["type"] for s in got] != types:
                    raise ValueError(f"partition {i} has other columns or types than the frame's metadata")
                _murvio.write_rows(handle, got, columns, blocks)
                del part, columns, blocks
        except BaseException:
            try:
                _murvio.end_write(handle)
            except Exception:
                pass
            raise
        _murvio.end_write(handle)
        # The new file takes the old one's permissions, or those a new file
        # gets from the user's umask.
        if before is not None:
            os.chmod(scratch, before.st_mode & 0o7777)
        else:
            mask = os.umask(0)
            os.umask(mask)
            os.chmod(scratch, 0o666 & ~mask)
        with open(scratch, "rb") as f:
            os.fsync(f.fileno())
        os.replace(scratch, target)
        _keep_owner(target, before)
        fd = os.open(directory or ".", os.O_RDONLY)
        try:
            os.fsync(fd)
        finally:
            os.close(fd)
    except BaseException:
        try:
            os.remove(scratch)
        except OSError:
            pass
        raise
