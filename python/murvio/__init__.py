"""murvio: system files to pandas and back.

    df = murvio.read("survey.murv")                 # a DataFrame
    meta = murvio.read_metadata("survey.murv")      # everything the file says
    with murvio.open("big.murv") as f:              # bounded memory
        for chunk in f.iter_chunks(cases=100_000):
            ...
    murvio.write(df, "out.murv", metadata=meta)

Failures of the library raise murvio.Error with the library's code and its
name (``err.code``, ``err.name``).
"""

from __future__ import annotations

import locale
import math
import warnings
from dataclasses import dataclass, field
from typing import Any, Iterator, Sequence

import numpy as np
import pandas as pd

from . import _murvio
from ._codes import CODES
from ._version import __version__

__all__ = ["CodeWarning", "Error", "buffer_cache", "Metadata", "Variable", "MurvioFile", "open", "read", "read_metadata", "write"]

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
        return (Error, (self.code, self.message))


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

class MurvioFile:
    """A file open for reading. Use as a context manager, or call close()."""

    def __init__(self, path):
        self.path = str(path)
        self._handle = _murvio.open_read(self.path)
        try:
            self._raw = _murvio.metadata(self._handle)
        except BaseException:
            self.close()
            raise
        self.metadata = _metadata_from_raw(self._raw)
        self._decoded = None
        self._short = ""

    def close(self) -> None:
        if self._handle is not None:
            _murvio.close(self._handle)
            self._handle = None

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
        dest, spec = [], []
        for i in idx:
            special = types[i] == 0 and ((labels and vls[i]) or (dates and fmts[i][0] in _DATE_FORMATS))
            dest.append(1 if special else 0)
            spec.append(miss[i] if missing == "nan" and types[i] == 0 else None)
        return {"idx": idx, "offsets": [raw["offsets"][i] for i in idx], "types": [types[i] for i in idx],
                "dest": dest, "missing": spec, "labels": labels, "nan": missing == "nan", "dates": dates}

    def _read(self, plan, first, count, index_start=None, parallel=False):
        start = first if index_start is None else index_start
        block, own, strs, n, short = _murvio.read_block(self._handle, first, count, plan["offsets"], plan["types"],
                                                        plan["dest"], plan["missing"], _encoding(), self.path,
                                                        parallel, start)
        if short:
            # The data ended before the stated count: the callers warn with both counts.
            self._short = f" (reading case {start + n + 1} gave code {short} {CODE_NAMES.get(short, '')})"
        return self._frame(plan, block, own, strs, n, pd.RangeIndex(start, start + n)), n

    def _frame(self, plan, block, own, strs, n, index) -> pd.DataFrame:
        names = self._names()
        idx = plan["idx"]
        columns = pd.Index([names[i] for i in idx], dtype=object)
        if len(own) == 0 and len(strs) == 0:
            return pd.DataFrame(block, columns=columns, index=index, copy=False)
        vars_ = self.metadata.variables
        block_pos, others, plain_str, plain_pos = [], [], [], []
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
            if plan["labels"] and v.value_labels:
                cats = list(dict.fromkeys(v.value_labels.values()))
                col = pd.Categorical(pd.Series(col, dtype=object).map(v.value_labels), categories=cats)
                changed = True
            if changed:
                others.append((pos, col))
            else:
                plain_str.append(col)
                plain_pos.append(pos)
        return _assemble(columns, index, block, block_pos, plain_str, plain_pos, others)

    def read(self, columns=None, cases=None, labels=False, missing="nan", dates=True,
             threads: bool = True) -> pd.DataFrame:
        """The cases as a DataFrame (see murvio.read). With `threads`, a large
        read of an uncompressed file goes on two threads, each with a handle
        of its own."""
        if missing not in ("nan", "keep"):
            raise ValueError("missing must be 'nan' or 'keep'")
        plan = self._plan(self._columns(columns), labels, missing, dates)
        stated = self.metadata.cases
        first, count = 0, -1
        if cases is not None:
            if isinstance(cases, int):
                cases = slice(cases, cases + 1)
            if not isinstance(cases, slice) or (cases.step not in (None, 1)):
                raise ValueError("cases must be a slice of case numbers with step 1")
            total = stated if stated >= 0 else None
            start, stop = cases.start or 0, cases.stop
            if (start < 0 or (stop is not None and stop < 0)) and total is None:
                raise ValueError("negative case numbers need a file that states its case count")
            if start < 0:
                start += total
            if stop is not None and stop < 0:
                stop += total
            first = max(0, start)
            count = -1 if stop is None else max(0, stop - first)
        self._short = ""
        df, n = self._read(plan, first, count, parallel=threads)
        if stated >= 0 and ((cases is None and n != stated) or self._short):
            warnings.warn(f"{self.path}: the file holds {first + n} cases, its header states {stated}{self._short}",
                          stacklevel=3)
        return df

    def iter_chunks(self, cases: int = 100_000, columns=None, labels=False, missing="nan",
                    dates=True) -> Iterator[pd.DataFrame]:
        """DataFrames of at most `cases` cases each, from the first case to the last."""
        if cases < 1:
            raise ValueError("cases must be at least 1")
        if missing not in ("nan", "keep"):
            raise ValueError("missing must be 'nan' or 'keep'")
        plan = self._plan(self._columns(columns), labels, missing, dates)
        self._short = ""
        first, start = 0, 0
        while True:
            df, n = self._read(plan, first, cases, start)
            first = -1
            if n == 0:
                break
            yield df
            del df
            start += n
            if n < cases:
                break
        stated = self.metadata.cases
        if stated >= 0 and start != stated:
            warnings.warn(f"{self.path}: the file holds {start} cases, its header states {stated}{self._short}",
                          stacklevel=2)


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


def read(path, columns=None, cases=None, labels=False, missing="nan", dates=True) -> pd.DataFrame:
    """Reads a file into a DataFrame.

    Numeric variables come as float64 with system-missing values as NaN, and
    with missing="nan" user-missing values too ("keep" keeps them); strings
    as str without their trailing blanks; with labels=True value-labelled
    variables as Categorical (values without a label are NaN); with
    dates=True date-formatted variables as datetime64. `columns` picks
    variables by name, `cases` is a slice of case numbers (from 0), read
    through seeks. A large read of an uncompressed file goes on two threads,
    each with a handle of its own.
    """
    with MurvioFile(path) as f:
        return f.read(columns=columns, cases=cases, labels=labels, missing=missing, dates=dates)


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
        return {"label": v.label, "print_format": v.print_format, "write_format": v.write_format,
                "missing": v.missing, "value_labels": v.value_labels, "measure": v.measure,
                "alignment": v.alignment, "column_width": v.column_width, "attributes": v.attributes}
    return dict(v)


def _apply_meta(spec: dict, vm: dict) -> None:
    for key, value in vm.items():
        if value is None:
            continue
        if key == "label":
            spec["label"] = _bytes(value)
        elif key in ("print_format", "write_format"):
            spec[key] = tuple(value)
        elif key == "missing":
            if spec["type"] == 0:
                spec["missing"] = tuple([value[0]] + [float(x) for x in value[1:4]] + [0.0] * (4 - len(value)))
            else:
                vals = [_bytes(x) for x in value[1:4]] + [b""] * (4 - len(value))
                spec["missing"] = (value[0], *vals)
        elif key == "value_labels" and value:
            spec["value_labels"] = [((float(k) if spec["type"] == 0 else _bytes(k)), _bytes(t))
                                    for k, t in dict(value).items()]
        elif key == "measure":
            spec["measure"] = {v: k for k, v in _MEASURES.items()}.get(value, value)
        elif key == "alignment":
            spec["alignment"] = {v: k for k, v in _ALIGNMENTS.items()}.get(value, value)
        elif key == "column_width":
            spec["column_width"] = int(value)
        elif key == "attributes" and value:
            spec["attributes"] = [(_bytes(k), _bytes(t)) for k, t in dict(value).items()]


def write(df: pd.DataFrame, path, compress: bool = True, metadata=None) -> None:
    """Writes a DataFrame as a system file.

    float, int and bool columns become numeric variables (NaN system-missing),
    strings string variables as wide as their longest value in bytes,
    Categorical columns numeric codes 1..n with the categories as value
    labels, datetime64 columns date-time values with a DATETIME format.
    `metadata` (a Metadata or a dict of its fields, "variables" mapping names
    to Variable or dicts) sets labels, formats, missing values, measures,
    attributes, sets and documents. Names the library would refuse are made
    valid and unique, with a warning that lists them.
    """
    meta = _as_dict(metadata)
    given = meta.get("variables") or {}
    names, changed = _valid_names([str(c) for c in df.columns])
    if changed:
        warnings.warn("names changed to names the library accepts: " + ", ".join(changed), stacklevel=2)
    enc = _encoding()
    blocks, in_blocks = _float_blocks(df)
    specs, columns = [], []
    for k, (name, col_name) in enumerate(zip(names, df.columns)):
        vm = _var_meta(given.get(str(col_name), given.get(name))) if given else {}
        spec = {"name": _bytes(name)}
        if k in in_blocks:
            spec["type"] = 0
            columns.append(None)
            _apply_meta(spec, vm)
            specs.append(spec)
            continue
        s = df.iloc[:, k]
        if isinstance(s.dtype, pd.CategoricalDtype):
            cats = list(s.cat.categories)
            codes = s.cat.codes.to_numpy().astype("float64") + 1
            codes[codes == 0] = np.nan
            spec["type"] = 0
            spec["value_labels"] = [(float(k + 1), _bytes(str(c))) for k, c in enumerate(cats)]
            spec["measure"] = 1
            columns.append(codes)
        elif pd.api.types.is_datetime64_any_dtype(s.dtype):
            values = s.dt.tz_localize(None) if getattr(s.dt, "tz", None) is not None else s
            ns = values.to_numpy(dtype="datetime64[ns]").astype("int64")
            secs = ns // 1_000_000_000 + (ns % 1_000_000_000) / 1e9 + _EPOCH_OFFSET
            secs[values.isna().to_numpy()] = np.nan
            spec["type"] = 0
            spec["print_format"] = spec["write_format"] = (22, 20, 0)
            columns.append(secs)
        elif pd.api.types.is_bool_dtype(s.dtype) or pd.api.types.is_numeric_dtype(s.dtype):
            spec["type"] = 0
            columns.append(np.ascontiguousarray(s.to_numpy(dtype="float64", na_value=np.nan)))
        else:
            encoded = [b"" if x is None or (isinstance(x, float) and math.isnan(x)) or x is pd.NA or x is pd.NaT
                       else x if isinstance(x, bytes) else str(x).encode(enc, "surrogateescape") for x in s]
            width = max(map(len, encoded), default=0) or 1
            if width > 32767:
                raise ValueError(f"column {col_name!r}: a value of {width} bytes; the longest string is 32767 bytes")
            spec["type"] = width
            columns.append(np.array(encoded, dtype=f"S{width}"))
        _apply_meta(spec, vm)
        specs.append(spec)
    info = {}
    if meta.get("file_label") is not None:
        info["file_label"] = _bytes(meta["file_label"])
    if meta.get("weight"):
        info["weight"] = _bytes(meta["weight"])
    if meta.get("text_info"):
        info["text_info"] = _bytes(meta["text_info"])
    if meta.get("documents"):
        info["documents"] = [_bytes(d) for d in meta["documents"]]
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
    _murvio.write_file(str(path), bool(compress), specs, columns, blocks, info)


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
