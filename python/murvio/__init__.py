"""murvio: system files to pandas and back.

    df = murvio.read("survey.murv")                 # a DataFrame
    meta = murvio.read_metadata("survey.murv")      # everything the file says
    with murvio.open("big.murv") as f:              # bounded memory
        for chunk in f.iter_chunks(cases=100_000):
            ...
    murvio.write(df, "out.murv", metadata=meta)

Failures of the library raise murvio.Error with the library's code and its
name (``err.code``, ``err.name``). A damaged file gives the cases that can be
read with a murvio.DamageWarning (murvio.DamageError with strict=True).
"""

from __future__ import annotations

import builtins
import errno as _errno
import locale
import math
import os
import stat as _stat
import struct
import threading
import warnings
import weakref
from dataclasses import dataclass, field
from typing import Any, Iterator, Sequence

import numpy as np
import pandas as pd

from . import _murvio
from ._codes import CODES
from ._version import __version__

__all__ = ["CodeWarning", "DamageError", "DamageWarning", "Error", "buffer_cache", "Metadata", "Variable", "MurvioFile", "open", "read", "read_metadata", "write"]

# The library's return codes: number -> (name, meaning), taken from murvio.h
# when the module is built.
CODE_NAMES = {code: name for code, (name, _) in CODES.items()}


class Error(Exception):
    """A call of the library failed: ``code`` is its return code, ``name`` the
    code's name in murvio.h and ``meaning`` what the header says of it."""

    def __init__(self, code: int, message: str):
        self.code = code
        self.name, self.meaning = CODES.get(code, ("unknown code", ""))
        self.message = message
        super().__init__(f"{message}: code {code} {self.name} ({self.meaning})")

    def __reduce__(self):
        return (type(self), (self.code, self.message))


class DamageError(Error):
    """The file is damaged (strict reads): the message says where, in words,
    with cases numbered from 1; ``code`` is the library's code of the read
    that failed (0 when the data simply ended or went on)."""

    def __init__(self, code: int, message: str):
        super().__init__(code, message)
        self.args = (message,)

    def __str__(self) -> str:
        return self.message


class DamageWarning(UserWarning):
    """The file is damaged; the cases before the damage were delivered."""


# Errors about the path itself: a murvio.Error and the OSError Python's own
# files raise for the same thing.
class _PathError(Error, OSError):
    errno_value = _errno.EINVAL

    def __init__(self, code: int, message: str):
        super().__init__(code, message)
        self.args = (message,)
        self.errno = self.errno_value

    def __str__(self) -> str:
        return self.message


class _NotFound(_PathError, FileNotFoundError):
    errno_value = _errno.ENOENT


class _IsADirectory(_PathError, IsADirectoryError):
    errno_value = _errno.EISDIR


class CodeWarning(UserWarning):
    """A call of the library gave a warning code (a label cut, for example)."""

    def __init__(self, code: int, message: str):
        self.code = code
        self.name, self.meaning = CODES.get(code, ("unknown code", ""))
        self.message = message
        super().__init__(f"{message}: code {code} {self.name} ({self.meaning})")

    def __reduce__(self):
        return (CodeWarning, (self.code, self.message))


# Date values count seconds from 14 October 1582; pandas counts from 1970.
_EPOCH_OFFSET = 12219379200.0
# Format types whose values are dates or date-times.
_DATE_FORMATS = {20, 22, 23, 24, 28, 29, 30, 38, 39}
_FORMAT_NAMES = {1: "A", 2: "AHEX", 3: "COMMA", 4: "DOLLAR", 5: "F", 6: "IB", 7: "PIBHEX", 8: "P", 9: "PIB",
                 10: "PK", 11: "RB", 12: "RBHEX", 15: "Z", 16: "N", 17: "E", 20: "DATE", 21: "TIME",
                 22: "DATETIME", 23: "ADATE", 24: "JDATE", 25: "DTIME", 26: "WKDAY", 27: "MONTH", 28: "MOYR",
                 29: "QYR", 30: "WKYR", 31: "PCT", 32: "DOT", 33: "CCA", 34: "CCB", 35: "CCC", 36: "CCD",
                 37: "CCE", 38: "EDATE", 39: "SDATE"}
_MEASURES = {0: "unknown", 1: "nominal", 2: "ordinal", 3: "scale"}
_ALIGNMENTS = {0: "left", 1: "right", 2: "center"}


def _encoding() -> str:
    enc = locale.getpreferredencoding(False) or "utf-8"
    return "utf-8" if enc.lower().replace("-", "") in ("utf8", "ansix3.41968", "ascii") else enc


def _text(b):
    if b is None:
        return None
    return b.decode(_encoding(), "surrogateescape") if isinstance(b, bytes) else b


def _bytes(s) -> bytes:
    if isinstance(s, bytes):
        return s
    return str(s).encode(_encoding(), "surrogateescape")


# ---- metadata ----

@dataclass
class Variable:
    """One variable of a file, as plain Python values."""
    name: str
    type: int                       # 0 numeric, else the string width in bytes
    label: str | None = None
    print_format: tuple = (5, 8, 2)  # (type, width, decimals)
    write_format: tuple = (5, 8, 2)
    missing: tuple | None = None    # (kind, values...): 1-3 values; -2 (low, high); -3 (low, high, value)
    value_labels: dict = field(default_factory=dict)
    measure: str = "unknown"
    alignment: str = "right"
    column_width: int = 8
    attributes: dict = field(default_factory=dict)

    @property
    def is_numeric(self) -> bool:
        return self.type == 0

    @property
    def format_text(self) -> str:
        t, w, d = self.print_format
        name = _FORMAT_NAMES.get(t, f"T{t}")
        return f"{name}{w}" + (f".{d}" if d and t != 1 else "")

    def __repr__(self) -> str:
        kind = "numeric" if self.type == 0 else f"string({self.type})"
        extra = f", label={self.label!r}" if self.label else ""
        if self.value_labels:
            extra += f", {len(self.value_labels)} value labels"
        return f"Variable({self.name!r}, {kind}, {self.format_text}{extra})"


class _Variables(Sequence):
    """The variables of a file, made into Variable objects when they are used."""

    def __init__(self, raw: dict):
        self._raw = raw
        self._cache: dict[int, Variable] = {}
        self._index: dict[str, int] | None = None

    def __len__(self) -> int:
        return len(self._raw["names"])

    def __getitem__(self, i):
        if isinstance(i, slice):
            return [self[k] for k in range(*i.indices(len(self)))]
        if isinstance(i, str):
            return self[self.index_of(i)]
        if i < 0:
            i += len(self)
        v = self._cache.get(i)
        if v is None:
            r = self._raw
            vl = r["value_labels"][i]
            numeric = r["types"][i] == 0
            missing = r["missing"][i]
            if missing is not None:
                # (kind, then the values it uses): 1-3 values, -2 low and high, -3 low, high and a value
                used = abs(missing[0])
                values = missing[1:1 + used] if numeric else tuple(_text(x).rstrip() for x in missing[1:1 + used])
                missing = (missing[0], *values)
            v = Variable(
                name=_text(r["names"][i]), type=r["types"][i], label=_text(r["labels"][i]),
                print_format=tuple(r["print_formats"][i]), write_format=tuple(r["write_formats"][i]),
                missing=missing,
                value_labels={} if vl is None else {(k if numeric else _text(k).rstrip()): _text(t) for k, t in vl},
                measure=_MEASURES.get(r["measures"][i], "unknown"),
                alignment=_ALIGNMENTS.get(r["alignments"][i], "right"),
                column_width=r["column_widths"][i],
                attributes={} if r["attributes"][i] is None else {_text(k): _text(t) for k, t in r["attributes"][i]})
            self._cache[i] = v
        return v

    def index_of(self, name: str) -> int:
        if self._index is None:
            self._index = {_text(n).upper(): k for k, n in enumerate(self._raw["names"])}
        try:
            return self._index[name.upper()]
        except KeyError:
            raise KeyError(f"no variable {name!r}") from None

    def names(self) -> list[str]:
        return [_text(n) for n in self._raw["names"]]

    def __repr__(self) -> str:
        return f"<{len(self)} variables>"


@dataclass
class Metadata:
    """Everything a file says about itself."""
    file_label: str | None
    product: str
    timestamp: str
    cases: int                      # as the file states it; -1 when it does not
    compression: bool
    weight: str | None
    documents: list
    variables: Any                  # a sequence of Variable
    file_attributes: dict
    mrsets: list
    variable_sets: dict
    date_variables: list
    data_entry: dict | None
    extension_records: dict         # subtype -> (unit size, bytes) of the records kept as they are
    text_info: str = ""
    case_size: int = 0
    records_present: list = field(default_factory=list)
    _raw: dict = field(default=None, repr=False, compare=False)

    def __repr__(self) -> str:
        lines = [f"Metadata: {len(self.variables)} variables, {self.cases} cases, "
                 f"{'compressed' if self.compression else 'plain'}"]
        for key in ("file_label", "product", "timestamp", "weight"):
            value = getattr(self, key)
            if value:
                lines.append(f"  {key}: {value!r}")
        shown = self.variables[:10]
        for v in shown:
            lines.append(f"  {v!r}")
        if len(self.variables) > len(shown):
            lines.append(f"  ... {len(self.variables) - len(shown)} more variables")
        for key in ("documents", "file_attributes", "mrsets", "variable_sets", "date_variables"):
            value = getattr(self, key)
            if value:
                lines.append(f"  {key}: {value!r}")
        if self.data_entry:
            lines.append(f"  data_entry: {self.data_entry['bytes']} bytes")
        if self.extension_records:
            lines.append(f"  extension_records: subtypes {sorted(self.extension_records)}")
        return "\n".join(lines)


def _metadata_from_raw(raw: dict) -> Metadata:
    sets = {}
    if raw["variable_sets"]:
        for line in _text(raw["variable_sets"]).splitlines():
            if "=" in line:
                name, _, rest = line.partition("=")
                sets[name.strip()] = rest.split()
    mrsets = []
    for s in raw["mrsets"]:
        mrsets.append({"name": _text(s["name"]), "label": _text(s["label"]), "dichotomy": s["dichotomy"],
                       "numeric": s["numeric"], "category_labels": s["category_labels"],
                       "first_variable_label": s["first_variable_label"],
                       "counted_value": _text(s["counted_value"]),
                       "variables": [_text(v) for v in s["variables"]]})
    attrs = {_text(k): _text(v) for k, v in raw["file_attributes"]}
    de = raw["data_entry"]
    return Metadata(
        file_label=_text(raw["file_label"]), product=_text(raw["product"]),
        timestamp=f"{_text(raw['date'])} {_text(raw['time'])}".strip(), cases=raw["cases"],
        compression=bool(raw["compression"]), weight=_text(raw["weight"]),
        documents=[_text(d) for d in raw["documents"]], variables=_Variables(raw), file_attributes=attrs,
        mrsets=mrsets, variable_sets=sets, date_variables=list(raw["date_variables"]),
        data_entry=None if de is None else {"guid": _text(de[0]), "bytes": de[1], "segments": de[2]},
        extension_records={s: (u, b) for s, (u, b) in raw["extension_records"].items()
                           if s not in (5, 7, 8, 10, 12, 19)},
        text_info=_text(raw["text_info"]), case_size=raw["case_size"],
        records_present=list(raw["records_present"]), _raw=raw)


# ---- reading ----

def _path(path) -> str:
    """A path given as str or os.PathLike, as str."""
    if not isinstance(path, (str, os.PathLike)):
        raise TypeError(f"a path must be str or os.PathLike, not {type(path).__name__}")
    return os.fsdecode(os.fspath(path))


def _kind(st: os.stat_result) -> str:
    """What a path that is not a regular file names."""
    mode = st.st_mode
    if _stat.S_ISFIFO(mode):
        return "a named pipe"
    if _stat.S_ISCHR(mode) or _stat.S_ISBLK(mode):
        return "a device"
    return "a socket" if _stat.S_ISSOCK(mode) else "not a regular file"


# The files open for reading in this process, so that a write refuses to
# replace a file it may be reading from.
_open_files: "weakref.WeakSet[MurvioFile]" = weakref.WeakSet()
_open_files_lock = threading.Lock()


class MurvioFile:
    """A file open for reading. Use as a context manager, or call close().

    A read and a close never overlap: close() on one thread waits for a
    read on another to finish, and a read after close() raises ValueError."""

    def __init__(self, path):
        self._lock = threading.Lock()
        self._handle = None
        self.path = _path(path)
        try:
            st = os.stat(self.path)
        except FileNotFoundError:
            raise _NotFound(1, f"{self.path}: no such file") from None
        if _stat.S_ISDIR(st.st_mode):
            raise _IsADirectory(1, f"{self.path}: is a directory")
        if not _stat.S_ISREG(st.st_mode):
            raise _PathError(1, f"{self.path}: {_kind(st)}; only a regular file is read")
        self._id = (st.st_dev, st.st_ino)
        self._handle = _murvio.open_read(self.path)
        try:
            self._raw = _murvio.metadata(self._handle)
        except BaseException:
            self.close()
            raise
        self.metadata = _metadata_from_raw(self._raw)
        self._decoded = None
        self._start = None
        with _open_files_lock:
            _open_files.add(self)

    def close(self) -> None:
        with self._lock:
            if self._handle is not None:
                _murvio.close(self._handle)
                self._handle = None

    @property
    def closed(self) -> bool:
        return self._handle is None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __del__(self):
        try:
            self.close()
        except Exception:
            pass

    def __len__(self) -> int:
        n = self.metadata.cases
        if n < 0:
            raise TypeError("the file does not state its number of cases")
        return n

    def _columns(self, columns) -> list[int]:
        vars_ = self.metadata.variables
        if columns is None:
            return list(range(len(vars_)))
        if isinstance(columns, str):
            columns = [columns]
        return [vars_.index_of(c) for c in columns]

    def _names(self) -> list[str]:
        if self._decoded is None:
            self._decoded = [_text(n) for n in self._raw["names"]]
        return self._decoded

    def _plan(self, idx, labels, missing, dates) -> dict:
        """Where each selected variable goes: the float block (plain numbers),
        a column of its own (numbers that become categories or dates) or the
        strings; and the user-missing values to blank."""
        raw = self._raw
        types, vls, fmts, miss = raw["types"], raw["value_labels"], raw["print_formats"], raw["missing"]
        dest, blank = [], []
        for i in idx:
            special = types[i] == 0 and ((labels and vls[i]) or (dates and fmts[i][0] in _DATE_FORMATS))
            dest.append(1 if special else 0)
            blank.append(miss[i] if missing == "nan" and types[i] == 0 else None)
        return {"idx": idx, "offsets": [raw["offsets"][i] for i in idx], "types": [types[i] for i in idx],
                "dest": dest, "missing": blank, "labels": labels, "nan": missing == "nan", "dates": dates}

    def _read(self, plan, first, count, index_start=None, parallel=False):
        """Up to `count` cases (all there are for -1) from case `first` (from
        where the last read ended for -1): (frame, cases read, the library's
        code of a read that failed, else 0)."""
        start = first if index_start is None else index_start
        with self._lock:
            if self._handle is None:
                raise ValueError("I/O operation on closed file")
            block, own, strs, n, code = _murvio.read_block(self._handle, first, count, plan["offsets"],
                                                           plan["types"], plan["dest"], plan["missing"],
                                                           _encoding(), self.path, parallel, self._hold(start))
        return self._frame(plan, block, own, strs, n, pd.RangeIndex(start, start + n)), n, code

    def _hold(self, first: int) -> int:
        """The most cases the file can hold from case `first` on, as its size
        allows: a plain case takes its full size, a compressed one at least a
        byte for each 8-byte cell. A header may state any count; this bound
        is what memory is reserved for (it grows if the file holds more)."""
        try:
            size = os.stat(self.path).st_size
        except OSError:
            return -1
        per_case = max(self.metadata.case_size, 8)
        if self.metadata.compression:
            per_case //= 8
        return max(size // per_case - first, 0)

    def _data_start(self):
        """Where the cases of a plain file begin: the end of the dictionary,
        found by walking its records; None when they cannot be walked. Also
        notes the bytes of a case in the file (more than a case in memory
        when very long strings are stored in segments)."""
        if self._start is not None or self.metadata.compression:
            return self._start
        try:
            with builtins.open(self.path, "rb") as f:
                head = f.read(176)
                order = "<" if struct.unpack_from("<i", head, 64)[0] in (2, 3) else ">"
                cells = struct.unpack_from(f"{order}i", head, 68)[0]
                self._case_bytes = 8 * cells if cells > 0 else self.metadata.case_size

                def ints(k):
                    data = f.read(4 * k)
                    if len(data) != 4 * k:
                        raise EOFError
                    return struct.unpack(f"{order}{k}i", data)

                while True:
                    kind, = ints(1)
                    if kind == 2:
                        _, has_label, n_missing = ints(3)
                        f.seek(16, 1)
                        if has_label:
                            length, = ints(1)
                            f.seek((length + 3) // 4 * 4, 1)
                        f.seek(8 * abs(n_missing), 1)
                    elif kind == 3:
                        count, = ints(1)
                        for _ in range(count):
                            f.seek(8, 1)
                            length = f.read(1)
                            if not length:
                                raise EOFError
                            f.seek((length[0] + 8) // 8 * 8 - 1, 1)
                    elif kind == 4:
                        count, = ints(1)
                        f.seek(4 * count, 1)
                    elif kind == 6:
                        count, = ints(1)
                        f.seek(80 * count, 1)
                    elif kind == 7:
                        _, size, count = ints(3)
                        f.seek(size * count, 1)
                    elif kind == 999:
                        ints(1)
                        self._start = f.tell()
                        return self._start
                    else:
                        return None
        except (OSError, EOFError, struct.error):
            return None

    def _damage(self, m: int, code: int, end=None):
        """What a read that stopped after `m` whole cases (counted from the
        first case of the file) says about the file, in words, or None when
        nothing is wrong. `code` is the library's code of the read that
        failed (0: none failed, the data ended); `end` the case number the
        read was to reach (None: the end of the data)."""
        n = self.metadata.cases
        of = f" of the {n} it states" if n >= 0 else ""
        where = f"{self.path}: damaged: "
        k = m + 1
        if code == 0 and not (n >= 0 and m < (n if end is None else min(end, n))):
            if end is None and 0 <= n < m:
                return f"{where}the file holds {m} cases, more than the {n} it states"
            return None
        # A plain file's cases are fixed runs of 8-byte cells after the
        # dictionary, so its size tells a cut from other damage. A
        # compressed file's cannot be told apart reliably.
        start = self._data_start()
        if start is not None:
            try:
                data = os.stat(self.path).st_size - start
            except OSError:
                data = -1
            size = self._case_bytes
            # A read that began past the data (a partition, a slice) reports
            # where the data ends all the same.
            if data >= 0 and size > 0 and m >= data // size:
                whole = data // size
                if data % size:
                    return f"{where}the file ends inside case {whole + 1}{of}"
                if n >= 0 and whole < n:
                    return f"{where}the file ends after case {whole}{of}"
                if n < 0 or whole == n:
                    return None
        # A compressed file whose data stops between blocks: whether a case
        # had begun cannot be told, so the case after the last whole one is
        # named as unreadable.
        return f"{where}case {k}{of} cannot be read" + (": the data ends" if code == 0 else "")

    def _report(self, message, code: int, strict: bool, stacklevel: int = 3) -> None:
        if message is None:
            return
        if strict:
            raise DamageError(code, message)
        warnings.warn(DamageWarning(message), stacklevel=stacklevel + 1)

    def _frame(self, plan, block, own, strs, n, index) -> pd.DataFrame:
        names = self._names()
        idx = plan["idx"]
        columns = pd.Index([names[i] for i in idx], dtype=object)
        if len(own) == 0 and len(strs) == 0:
            return pd.DataFrame(block, columns=columns, index=index, copy=False)
        vars_ = self.metadata.variables
        block_pos, others, plain_str, plain_pos = [], [], [], []
        labelled = {}
        o = s = 0
        for pos, (i, t, d) in enumerate(zip(idx, plan["types"], plan["dest"])):
            if t == 0 and d == 0:
                block_pos.append(pos)
                continue
            v = vars_[i]
            if t == 0:
                col = own[o]
                o += 1
                if plan["labels"] and v.value_labels:
                    col = _categorical(col, v.value_labels)
                    if isinstance(col, pd.Categorical):
                        labelled[names[i]] = v.value_labels
                else:
                    col = _to_datetime(col)
                others.append((pos, col))
                continue
            col = strs[s]
            s += 1
            changed = False
            if plan["nan"] and v.missing:
                col = col.copy()
                col[np.isin(col, list(v.missing[1:]))] = np.nan
                changed = True
            if plan["labels"] and v.value_labels and len(set(v.value_labels.values())) == len(v.value_labels):
                cats = list(dict.fromkeys(v.value_labels.values()))
                col = pd.Categorical(pd.Series(col, dtype=object).map(v.value_labels), categories=cats)
                labelled[names[i]] = v.value_labels
                changed = True
            if changed:
                others.append((pos, col))
            else:
                plain_str.append(col)
                plain_pos.append(pos)
        df = _assemble(columns, index, block, block_pos, plain_str, plain_pos, others)
        if labelled:
            # The values behind the categories, so that write() gives the
            # variables their codes back.
            df.attrs["value_labels"] = labelled
        return df

    def _cases(self, cases):
        """`cases` (None, an int or a slice, by Python's rules for a sequence
        of the stated length) as (first, count); count -1 reads to the end."""
        stated = self.metadata.cases
        total = stated if stated >= 0 else None
        if cases is None:
            return 0, -1
        if isinstance(cases, (int, np.integer)) and not isinstance(cases, bool):
            k = int(cases)
            if k < 0:
                if total is None:
                    raise ValueError("negative case numbers need a file that states its case count")
                k += total
            if k < 0 or (total is not None and k >= total):
                raise IndexError(f"case {cases} out of range: the file states {stated} cases")
            return k, 1
        if not isinstance(cases, slice) or cases.step not in (None, 1):
            raise ValueError("cases must be a case number or a slice of case numbers with step 1")
        for x in (cases.start, cases.stop):
            if x is not None and not isinstance(x, (int, np.integer)):
                raise TypeError("slice bounds must be integers or None")
        if total is None:
            if (cases.start or 0) < 0 or (cases.stop is not None and cases.stop < 0):
                raise ValueError("negative case numbers need a file that states its case count")
            first = cases.start or 0
            return first, -1 if cases.stop is None else max(0, cases.stop - first)
        first, stop, _ = cases.indices(total)
        # Open to the end: the cases past the stated count too, if there are any.
        return first, -1 if cases.stop is None else max(0, stop - first)

    def read(self, columns=None, cases=None, labels=False, missing="nan", dates=True,
             threads: bool = True, strict: bool = False, _stacklevel: int = 2) -> pd.DataFrame:
        """The cases as a DataFrame (see murvio.read). With `threads`, a large
        read goes on two threads, each with a handle
        of its own."""
        if missing not in ("nan", "keep"):
            raise ValueError("missing must be 'nan' or 'keep'")
        if self._handle is None:
            raise ValueError("I/O operation on closed file")
        plan = self._plan(self._columns(columns), labels, missing, dates)
        first, count = self._cases(cases)
        df, n, code = self._read(plan, first, count, parallel=threads)
        self._report(self._damage(first + n, code, None if count < 0 else first + count), code, strict, _stacklevel)
        return df

    def iter_chunks(self, cases: int = 100_000, columns=None, labels=False, missing="nan",
                    dates=True, strict: bool = False) -> Iterator[pd.DataFrame]:
        """DataFrames of at most `cases` cases each, from the first case to the
        last. Damage ends the chunks after the last whole case, with a
        DamageWarning (DamageError with `strict`) after the chunk that holds it."""
        if cases < 1:
            raise ValueError("cases must be at least 1")
        if missing not in ("nan", "keep"):
            raise ValueError("missing must be 'nan' or 'keep'")
        plan = self._plan(self._columns(columns), labels, missing, dates)
        first, start = 0, 0
        while True:
            df, n, code = self._read(plan, first, cases, start)
            first = -1
            if n:
                yield df
            del df
            start += n
            if code or n < cases:
                break
        self._report(self._damage(start, code), code, strict, 2)

def _categorical(col: np.ndarray, value_labels: dict):
    """Numbers as categories named by their labels, in the order of the values;
    a value without a label is NaN. Labels shared by several values stay numbers."""
    codes = sorted(value_labels)
    cats = [value_labels[c] for c in codes]
    if len(set(cats)) != len(cats):
        return col
    pos = np.clip(np.searchsorted(codes, col), 0, len(codes) - 1)
    hit = np.asarray(codes, dtype="float64")[pos] == col
    return pd.Categorical.from_codes(np.where(hit, pos, -1), categories=cats)


def _to_datetime(col: np.ndarray) -> np.ndarray:
    """Seconds since 14 October 1582 as datetime64[ns], to the microsecond; NaT
    for missing values and values outside pandas' range."""
    us = np.round((col - _EPOCH_OFFSET) * 1e6)
    return pd.to_datetime(us, unit="us", errors="coerce").values


def _assemble(columns, index, block, block_pos, plain_str, plain_pos, others) -> pd.DataFrame:
    """A frame from its parts without copying them: the float block, the
    untouched string rows, and columns of their own, each at its position."""
    try:
        from pandas.core.internals import BlockManager
        from pandas.core.internals.api import make_block
        blocks = []
        if block_pos:
            blocks.append(make_block(block.T, placement=block_pos, ndim=2))
        if plain_pos:
            rows = np.stack(plain_str) if len(plain_str) > 1 else plain_str[0].reshape(1, -1)
            blocks.append(make_block(rows, placement=plain_pos, ndim=2))
        for pos, col in others:
            values = col.reshape(1, -1) if isinstance(col, np.ndarray) else col
            blocks.append(make_block(values, placement=[pos], ndim=2))
        return pd.DataFrame(BlockManager(tuple(blocks), [columns, index]))
    except (ImportError, AttributeError, TypeError, ValueError):
        # Another pandas: column by column.
        data = [None] * len(columns)
        for k, pos in enumerate(block_pos):
            data[pos] = block[:, k]
        for col, pos in zip(plain_str, plain_pos):
            data[pos] = col
        for pos, col in others:
            data[pos] = col
        df = pd.concat([pd.Series(c, index=index) for c in data], axis=1) if data else pd.DataFrame(index=index)
        df.columns = columns
        return df


def open(path) -> MurvioFile:  # noqa: A001 - the module's own open, as in the documentation
    """Opens a file for reading: .metadata, len(), read() and iter_chunks()."""
    return MurvioFile(path)


def read(path, columns=None, cases=None, labels=False, missing="nan", dates=True,
         strict: bool = False) -> pd.DataFrame:
    """Reads a file into a DataFrame.

    Numeric variables come as float64 with system-missing values as NaN, and
    with missing="nan" user-missing values too ("keep" keeps them); strings
    as str without their trailing blanks; with labels=True value-labelled
    variables as Categorical (values without a label are NaN); with
    dates=True date-formatted variables as datetime64. `columns` picks
    variables by name, `cases` a case number or a slice of case numbers
    (from 0, by Python's rules for a sequence of the stated length), read
    through seeks. A large read goes on two threads,
    each with a handle of its own. A damaged file gives every whole case
    before the damage and a DamageWarning that says where it is (cases
    numbered from 1); with strict=True it raises DamageError instead.
    """
    with MurvioFile(path) as f:
        return f.read(columns=columns, cases=cases, labels=labels, missing=missing, dates=dates, strict=strict,
                      _stacklevel=3)


def buffer_cache(limit: int | None = None) -> int:
    """Large column buffers of frames that are gone are kept for the next read,
    so that reading chunk after chunk does not ask the system for fresh memory
    each time. Sets the most kept, in bytes (1 GiB at first; 0 gives all back
    at once), and returns how many bytes are kept."""
    return _murvio.buffer_cache(-1 if limit is None else int(limit))


def read_metadata(path) -> Metadata:
    """Everything the file says about itself, without reading its cases."""
    with MurvioFile(path) as f:
        return f.metadata


# ---- writing ----

_RESERVED = {"ALL", "AND", "BY", "EQ", "GE", "GT", "LE", "LT", "NE", "NOT", "OR", "TO", "WITH"}


def _valid_names(names: list[str]) -> tuple[list[str], list[str]]:
    """Names the library accepts, unique without regard to case, and the changes made."""
    out, changed, taken = [], [], set()
    for i, original in enumerate(names):
        name = str(original).strip()
        if _murvio.validate_varname(_bytes(name)) != 0 or len(_bytes(name)) > 64:
            name = "".join(ch if ord(ch) >= 128 or (ch.isascii() and ch.isalnum()) or ch in "@#$_." else "_"
                           for ch in name)
            if name and (name[0].isdigit() or name[0] in "_.#$"):
                name = "v" + name
            while len(_bytes(name)) > 64:
                name = name[:-1]
            if name.upper() in _RESERVED:
                name += "_"
            if not name or _murvio.validate_varname(_bytes(name)) != 0:
                name = f"v{i + 1}"
        if name.upper() in taken:
            k = 2
            while True:
                suffix = f"_{k}"
                cand = name
                while len(_bytes(cand + suffix)) > 64:
                    cand = cand[:-1]
                cand += suffix
                if cand.upper() not in taken and _murvio.validate_varname(_bytes(cand)) == 0:
                    name = cand
                    break
                k += 1
        taken.add(name.upper())
        if name != str(original):
            changed.append(f"{original!r} -> {name}")
        out.append(name)
    return out, changed


def _as_dict(metadata) -> dict:
    if metadata is None:
        return {}
    if isinstance(metadata, Metadata):
        d = {k: getattr(metadata, k) for k in ("file_label", "weight", "documents", "file_attributes", "mrsets",
                                                "variable_sets", "text_info")}
        d["variables"] = {v.name: v for v in metadata.variables}
        return d
    return dict(metadata)


def _var_meta(v) -> dict:
    if v is None:
        return {}
    if isinstance(v, Variable):
        return {"type": v.type, "label": v.label, "print_format": v.print_format, "write_format": v.write_format,
                "missing": v.missing, "value_labels": v.value_labels, "measure": v.measure,
                "alignment": v.alignment, "column_width": v.column_width, "attributes": v.attributes}
    return dict(v)


def _apply_meta(vdef: dict, vm: dict) -> None:
    for key, value in vm.items():
        if value is None:
            continue
        if key == "label":
            vdef["label"] = _bytes(value)
        elif key in ("print_format", "write_format"):
            vdef[key] = tuple(value)
        elif key == "missing":
            if vdef["type"] == 0:
                vdef["missing"] = tuple([value[0]] + [float(x) for x in value[1:4]] + [0.0] * (4 - len(value)))
            else:
                vals = [_bytes(x) for x in value[1:4]] + [b""] * (4 - len(value))
                vdef["missing"] = (value[0], *vals)
        elif key == "value_labels" and value:
            vdef["value_labels"] = [((float(k) if vdef["type"] == 0 else _bytes(k)), _bytes(t))
                                    for k, t in dict(value).items()]
        elif key in ("measure", "alignment"):
            names = _MEASURES if key == "measure" else _ALIGNMENTS
            code = {v: k for k, v in names.items()}.get(value, value if value in names else None)
            if code is None or isinstance(value, bool):
                allowed = ", ".join(repr(v) for v in names.values())
                raise ValueError(f"{key} {value!r} of {_text(vdef['name'])}: one of {allowed}")
            vdef[key] = code
        elif key == "column_width":
            vdef["column_width"] = int(value)
        elif key == "attributes" and value:
            vdef["attributes"] = [(_bytes(k), _bytes(t)) for k, t in dict(value).items()]


def _destination(path) -> tuple[str, os.stat_result | None]:
    """Where a write goes: a symbolic link is followed to its target, which
    is replaced (when it exists) only if it is a regular file that this
    process is not reading; and the target's status before the write."""
    target = os.path.realpath(_path(path))
    try:
        st = os.stat(target)
    except FileNotFoundError:
        return target, None
    if _stat.S_ISDIR(st.st_mode):
        raise _IsADirectory(1, f"{target}: is a directory")
    if not _stat.S_ISREG(st.st_mode):
        raise _PathError(1, f"{target}: {_kind(st)}; only a regular file is replaced")
    with _open_files_lock:
        held = list(_open_files)
    for f in held:
        if not f.closed and f._id == (st.st_dev, st.st_ino):
            raise _PathError(1, f"{target}: the file is open for reading ({f.path}); close it before writing over it")
    return target, st


def _check_text(what: str, text, limit: int) -> bytes:
    """The bytes of a text the format keeps to `limit` bytes, cut at a
    character boundary, with a warning when it is longer."""
    raw = _bytes(text)
    if len(raw) > limit:
        cut = raw[:limit].decode(_encoding(), "ignore").encode(_encoding(), "surrogateescape")
        warnings.warn(f"{what}: stored cut to {len(cut)} bytes (it holds at most {limit})", UserWarning, stacklevel=4)
        return cut
    return raw


def _category_values(cats: list, labels: dict | None):
    """The value each category is written as: through `labels` (value ->
    label, as read() keeps them) when every category is one of its labels,
    so that labelled data goes back with its own codes; else 1, 2, ...
    Returns (values, the value labels to write, string variable or not)."""
    if labels:
        by_label = {}
        for value, text in labels.items():
            by_label.setdefault(str(text), value)
        if all(str(c) in by_label for c in cats):
            values = [by_label[str(c)] for c in cats]
            string = any(isinstance(v, (str, bytes)) for v in labels)
            return values, labels, string
    return [float(k + 1) for k in range(len(cats))], {float(k + 1): str(c) for k, c in enumerate(cats)}, False


def write(df: pd.DataFrame, path, compress: bool = True, metadata=None) -> None:
    """Writes a DataFrame as a system file.

    float, int and bool columns become numeric variables (NaN system-missing),
    strings string variables as wide as their longest value in bytes,
    Categorical columns numeric codes 1..n with the categories as value
    labels (or, for a column read with labels=True or given value labels in
    `metadata`, the codes behind its labels), datetime64 columns date-time
    values with a DATETIME format, timedelta64 columns seconds with a TIME
    format. `metadata` (a Metadata or a dict of its fields, "variables"
    mapping names to Variable or dicts) sets labels, formats, missing
    values, measures, attributes, sets and documents. Names the library
    would refuse are made valid and unique, with a warning that lists them.
    A symbolic link is followed; only a regular file is replaced (keeping
    its permissions and, where allowed, its owner), and a failure leaves it
    as it was.
    """
    if not isinstance(df, pd.DataFrame):
        raise TypeError(f"write() needs a pandas DataFrame, not {type(df).__name__}")
    target, before = _destination(path)
    meta = _as_dict(metadata)
    defs, columns, blocks = _frame_columns(df, meta)
    # The library writes beside an existing file and moves the new one over
    # it when complete, keeping its permissions; a failure removes what it
    # wrote and leaves the old file whole.
    _murvio.write_file(target, bool(compress), defs, columns, blocks, _file_info(meta))
    _keep_owner(target, before)


def _keep_owner(target: str, before) -> None:
    """Gives a replaced file its old owner back, where that is allowed."""
    if before is None:
        return
    try:
        after = os.stat(target)
        if (after.st_uid, after.st_gid) != (before.st_uid, before.st_gid):
            os.chown(target, before.st_uid, before.st_gid)
    except OSError:
        pass  # not permitted: the file is the writer's, as any new file would be


def _frame_columns(df: pd.DataFrame, meta: dict, widths: dict | None = None, stacklevel: int = 3):
    """The variables of a frame (dicts for the compiled part) and its values
    as columns and float blocks. `widths` fixes the width of string
    variables (column -> bytes), so that the parts of a frame written in
    steps have the same variables."""
    given = meta.get("variables") or {}
    kept = df.attrs.get("value_labels") or {}
    names, changed = _valid_names([str(c) for c in df.columns])
    if changed:
        warnings.warn("names changed to names the library accepts: " + ", ".join(changed), stacklevel=stacklevel)
    enc = _encoding()
    blocks, in_blocks = _float_blocks(df)
    defs, columns = [], []
    for k, (name, col_name) in enumerate(zip(names, df.columns)):
        vm = _var_meta(given.get(str(col_name), given.get(name))) if given else {}
        vdef = {"name": _bytes(name)}
        s = df.iloc[:, k]
        if s.dtype.kind in "iu" and s.dtype.itemsize == 8 or str(s.dtype) in ("Int64", "UInt64"):
            big = s.dropna().astype(s.dtype.numpy_dtype if hasattr(s.dtype, "numpy_dtype") else s.dtype)
            if len(big) and (big.max() > 2**53 or big.min() < -2**53):
                warnings.warn(f"column {col_name!r}: integers beyond 2**53 lose precision as numbers "
                              f"(stored as the nearest double)", UserWarning, stacklevel=stacklevel)
        if k in in_blocks:
            vdef["type"] = 0
            columns.append(None)
            _apply_meta(vdef, vm)
            defs.append(vdef)
            continue
        if s.dtype.kind == "c":
            raise TypeError(f"column {col_name!r}: complex numbers cannot be stored (a variable holds real numbers)")
        if isinstance(s.dtype, pd.CategoricalDtype):
            cats = list(s.cat.categories)
            labels = vm.get("value_labels") or kept.get(str(col_name))
            values, labels, string = _category_values(cats, labels)
            codes = s.cat.codes.to_numpy()
            if string:
                encoded = [b"" if c < 0 else _bytes(values[c]) for c in codes]
                width = max([len(_bytes(v)) for v in labels] + list(map(len, encoded)) + [1])
                vdef["type"] = max(width, vm.pop("type", 0) if isinstance(vm.get("type"), int) else 0)
                columns.append(np.array(encoded, dtype=f"S{vdef['type']}"))
            else:
                table = np.asarray(values + [np.nan], dtype="float64")
                vdef["type"] = 0
                columns.append(table[codes])  # code -1 (no category) takes the last: NaN
            vdef["value_labels"] = labels
            vm = {**vm, "value_labels": labels}
            vdef["measure"] = 1
        elif pd.api.types.is_datetime64_any_dtype(s.dtype):
            if getattr(s.dt, "tz", None) is not None:
                warnings.warn(f"column {col_name!r}: date-times with a time zone ({s.dt.tz}) stored in UTC "
                              f"(the format keeps no time zone)", UserWarning, stacklevel=stacklevel)
                s = s.dt.tz_convert("UTC").dt.tz_localize(None)
            ns = s.to_numpy(dtype="datetime64[ns]").astype("int64")
            # Whole seconds exactly, then the fraction: one rounding to the double.
            secs = (ns // 1_000_000_000 + int(_EPOCH_OFFSET)).astype("float64") + (ns % 1_000_000_000) / 1e9
            secs[s.isna().to_numpy()] = np.nan
            vdef["type"] = 0
            vdef["print_format"] = vdef["write_format"] = (22, 20, 0)
            columns.append(secs)
        elif pd.api.types.is_timedelta64_dtype(s.dtype):
            warnings.warn(f"column {col_name!r}: durations stored as seconds with a TIME format "
                          f"(they read back as float64 seconds)", UserWarning, stacklevel=stacklevel)
            ns = s.to_numpy(dtype="timedelta64[ns]").astype("int64")
            secs = (ns // 1_000_000_000).astype("float64") + (ns % 1_000_000_000) / 1e9
            secs[s.isna().to_numpy()] = np.nan
            vdef["type"] = 0
            vdef["print_format"] = vdef["write_format"] = (21, 15, 6)
            columns.append(secs)
        elif pd.api.types.is_bool_dtype(s.dtype) or pd.api.types.is_numeric_dtype(s.dtype):
            vdef["type"] = 0
            columns.append(np.ascontiguousarray(s.to_numpy(dtype="float64", na_value=np.nan)))
        else:
            if pd.api.types.infer_dtype(s, skipna=True) not in ("string", "bytes", "empty") and \
                    any(isinstance(x, complex) for x in s):
                raise TypeError(f"column {col_name!r}: complex numbers cannot be stored (a variable holds real numbers)")
            encoded = [b"" if x is None or (isinstance(x, float) and math.isnan(x)) or x is pd.NA or x is pd.NaT
                       else x if isinstance(x, bytes) else str(x).encode(enc, "surrogateescape") for x in s]
            if b"\0" in b"".join(encoded):
                warnings.warn(f"column {col_name!r}: values with a NUL character stored cut before it",
                              UserWarning, stacklevel=stacklevel)
                encoded = [x.split(b"\0", 1)[0] for x in encoded]
            width = max(map(len, encoded), default=0) or 1
            if widths and str(col_name) in widths:
                width = max(width, int(widths[str(col_name)]))
            if width > 32767:
                raise ValueError(f"column {col_name!r}: a value of {width} bytes; the longest string is 32767 bytes")
            vdef["type"] = width
            columns.append(np.array(encoded, dtype=f"S{width}"))
        _apply_meta(vdef, vm)
        defs.append(vdef)
    return defs, columns, blocks


def _file_info(meta: dict) -> dict:
    """The file's own metadata for the compiled part."""
    info = {}
    if meta.get("file_label") is not None:
        info["file_label"] = _check_text("file label", meta["file_label"], 64)
    if meta.get("weight"):
        info["weight"] = _bytes(meta["weight"])
    if meta.get("text_info"):
        info["text_info"] = _bytes(meta["text_info"])
    if meta.get("documents"):
        info["documents"] = [_check_text(f"document line {i + 1}", d, 80) for i, d in enumerate(meta["documents"])]
    if meta.get("file_attributes"):
        info["file_attributes"] = [(_bytes(k), _bytes(v)) for k, v in dict(meta["file_attributes"]).items()]
    if meta.get("mrsets"):
        info["mrsets"] = [{**s, "name": _bytes(s["name"]), "label": _bytes(s.get("label") or ""),
                           "counted_value": None if s.get("counted_value") is None else _bytes(s["counted_value"]),
                           "variables": [_bytes(v) for v in s["variables"]]} for s in meta["mrsets"]]
    if meta.get("variable_sets"):
        vs = meta["variable_sets"]
        text = vs if isinstance(vs, str) else "".join(f"{k}= {' '.join(v)}\n" for k, v in vs.items())
        info["variable_sets"] = _bytes(text)
    return info


def _float_blocks(df: pd.DataFrame):
    """The frame's blocks of plain numbers (float, int, bool) as float64 arrays
    of one row per column, taken as they are where they are float64 already,
    and the positions of the columns they hold."""
    try:
        mgr = df._mgr
        out, covered = [], set()
        for blk in mgr.blocks:
            values = blk.values
            if not isinstance(values, np.ndarray) or values.ndim != 2 or values.dtype.kind not in "fiub":
                continue
            if values.dtype != np.float64:
                values = values.astype(np.float64)
            locs = [int(x) for x in blk.mgr_locs.as_array]
            out.append((values, locs))
            covered.update(locs)
        return out, covered
    except AttributeError:
        # Another pandas: the columns one by one.
        return [], set()
