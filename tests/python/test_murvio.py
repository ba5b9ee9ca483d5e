"""The Python module: round trips, metadata, slices and chunks, errors, and
partitioned reads on Dask."""

import os
import re
import stat
import struct
import threading
import warnings

import numpy as np
import pandas as pd
import pytest

import murvio
import murvio.dask


@pytest.fixture
def table():
    n = 1000
    rng = np.random.default_rng(5)
    return pd.DataFrame({
        "x": rng.normal(size=n).round(6),
        "count": rng.integers(0, 100, size=n),
        "flag": rng.integers(0, 2, size=n).astype(bool),
        "word": rng.choice(["alpha", "beta", "", "Zoë"], size=n),
        "long": ["essay " * (i % 80) + str(i) for i in range(n)],           # up to ~480 bytes
        "kind": pd.Categorical(rng.choice(["lo", "mid", "hi"], size=n), categories=["lo", "mid", "hi"]),
        "when": pd.to_datetime("2001-02-03") + pd.to_timedelta(rng.integers(0, 10**9, size=n), unit="s"),
        "small": rng.normal(size=n).astype("float32"),
        "nullable": pd.array([None if i % 7 == 0 else i for i in range(n)], dtype="Int64"),
    })


@pytest.mark.parametrize("compress", [True, False])
def test_round_trip_every_dtype(tmp_path, table, compress):
    t = table.copy()
    t.loc[3, "x"] = np.nan
    t.loc[4, "when"] = pd.NaT
    path = tmp_path / "t.murv"
    murvio.write(t, path, compress=compress)
    # A numeric variable gives back float64, NaN for a missing value.
    want = t.astype({c: "float64" for c in ("count", "flag", "small", "nullable")})
    pd.testing.assert_frame_equal(murvio.read(path, labels=True), want, check_categorical=True)
    assert murvio.read_metadata(path).variables["long"].type == max(len(s.encode()) for s in t["long"])


def test_metadata_round_trip(tmp_path, table):
    meta = {
        "file_label": "A survey",
        "documents": ["first line", "second line"],
        "file_attributes": {"Origin": "tests", "Wave[1]": "one", "Wave[2]": "two"},
        "weight": "count",
        "variable_sets": {"Core": ["x", "count"]},
        "mrsets": [{"name": "$both", "label": "Both", "dichotomy": True, "numeric": True,
                    "category_labels": False, "first_variable_label": False,
                    "counted_value": "1", "variables": ["count", "flag"]}],
        "variables": {
            "x": {"label": "The x", "print_format": (5, 10, 3), "write_format": (5, 10, 3),
                  "missing": (-3, -9.0, -7.0, 99.0), "measure": "scale", "alignment": "center",
                  "column_width": 12, "attributes": {"Unit": "m"}},
            "count": {"value_labels": {0.0: "none", 99.0: "many"}, "measure": "ordinal"},
            "word": {"missing": (1, "beta"), "value_labels": {"alpha": "A"}},
        },
    }
    path = tmp_path / "m.murv"
    murvio.write(table, path, metadata=meta)
    m = murvio.read_metadata(path)
    # What read_metadata returns, written again, gives the same metadata.
    path2 = tmp_path / "m2.murv"
    murvio.write(murvio.read(path, missing="keep", dates=False), path2, metadata=m)
    for got in (m, murvio.read_metadata(path2)):
        for key in ("file_label", "documents", "weight", "file_attributes", "variable_sets", "mrsets"):
            assert getattr(got, key) == meta[key], key
        for name, props in meta["variables"].items():
            for key, value in props.items():
                assert getattr(got.variables[name], key) == value, (name, key)
        assert list(got.variables) == list(m.variables)
    assert "A survey" in repr(m) and "Variable('x'" in repr(m)


def test_missing_values_and_labels(tmp_path):
    df = pd.DataFrame({"v": [1.0, -9.0, 5.0, 99.0], "s": ["a", "b", "c", "b"]})
    path = tmp_path / "mv.murv"
    murvio.write(df, path, metadata={"variables": {
        "v": {"missing": (-3, -10.0, -5.0, 99.0), "value_labels": {1.0: "one", 5.0: "five"}},
        "s": {"missing": (1, "b")}}})
    nan = murvio.read(path)
    assert nan["v"].isna().tolist() == [False, True, False, True]
    assert nan["s"].isna().tolist() == [False, True, False, True]
    keep = murvio.read(path, missing="keep")
    assert keep["v"].tolist() == [1.0, -9.0, 5.0, 99.0] and keep["s"].tolist() == ["a", "b", "c", "b"]
    lab = murvio.read(path, labels=True)
    assert list(lab["v"].cat.categories) == ["one", "five"]
    assert lab["v"].tolist()[0] == "one" and lab["v"].tolist()[2] == "five"


def test_columns_cases_and_chunks(tmp_path):
    n = 25_000
    df = pd.DataFrame({"i": np.arange(n, dtype="float64"), "s": [f"r{i}" for i in range(n)]})
    path = tmp_path / "c.murv"
    murvio.write(df, path, compress=True)
    part = murvio.read(path, columns=["s"], cases=slice(12_345, 12_350))
    assert list(part.columns) == ["s"] and part["s"].tolist() == [f"r{i}" for i in range(12_345, 12_350)]
    assert list(part.index) == list(range(12_345, 12_350))
    assert murvio.read(path, cases=slice(-3, None))["i"].tolist() == [n - 3, n - 2, n - 1]
    with murvio.open(path) as f:
        assert len(f) == n
        chunks = list(f.iter_chunks(cases=10_000, columns=["i"]))
        assert [len(c) for c in chunks] == [10_000, 10_000, 5_000]
        pd.testing.assert_frame_equal(pd.concat(chunks), df[["i"]])


@pytest.fixture
def split_small():
    """Reads of any size split over two handles, so that small files take that path."""
    murvio._murvio.split_threshold(2, 0.0)
    yield
    murvio._murvio.split_threshold(50_000, 32.0 * 2**20)


def restate_count(path, stated):
    """Makes the header of an uncompressed file state another case count."""
    data = bytearray(path.read_bytes())
    data[80:84] = struct.pack("<i", stated)
    at = data.find(struct.pack("<iiii", 7, 16, 8, 2))
    data[at + 24:at + 32] = struct.pack("<q", stated)
    path.write_bytes(bytes(data))


# Ten cases of two cells that never compress (a stored cell each), so that a
# compressed file holds them in groups of four: a block of eight commands,
# then the 64 bytes of the four cases.
TEN = pd.DataFrame({"a": np.arange(10.0) + 0.5, "s": [f"s{i}" for i in range(10)]})


# The same cases with a long string, which the file stores in segments that
# take more bytes than the string takes in memory.
LONG = TEN.assign(s=TEN.s * 300)


def cut_to(cases, extra=0):
    """Keeps `cases` whole cases (of the file's size) and `extra` bytes."""
    return lambda data, start, case: data[:start + cases * case + extra]


def restated(count):
    def damage(data, start, case):
        data = bytearray(data)
        data[80:84] = struct.pack("<i", count if -1 <= count < 2**31 else -1)
        at = data.find(struct.pack("<iiii", 7, 16, 8, 2))
        data[at + 24:at + 32] = struct.pack("<q", count)
        return bytes(data)
    return damage


def both(first, second):
    return lambda data, start, case: second(first(data, start, case), start, case)


def command(case_number, value):
    """Sets the command of the second cell of a case in the first block."""
    def damage(data, start, case):
        data = bytearray(data)
        data[start + 2 * case_number + 1] = value
        return bytes(data)
    return damage


# (compressed, frame, damage, whole cases readable, what a read says: {m} the
# whole cases, {k} the case after them). A plain file's whole cases follow
# from its size; a compressed file's are those the library reads one by one.
# A compressed case of TEN is two stored cells, so four cases make a group
# of a block of commands and 64 bytes.
DAMAGED = [
    (False, TEN, cut_to(7, 8), 7, "the file ends inside case 8 of the 10 it states"),
    (False, TEN, cut_to(6), 6, "the file ends after case 6 of the 10 it states"),
    (False, TEN, restated(12), 10, "the file ends after case 10 of the 12 it states"),
    (False, TEN, restated(8), 10, "the file holds 10 cases, more than the 8 it states"),
    (False, TEN, restated(2**31 - 1), 10, "the file ends after case 10 of the 2147483647 it states"),
    (False, TEN, restated(10**8), 10, "the file ends after case 10 of the 100000000 it states"),
    (False, TEN, both(restated(-1), cut_to(9, 3)), 9, "the file ends inside case 10$"),
    (False, LONG, cut_to(6, 500), 6, "the file ends inside case 7 of the 10 it states"),
    (False, LONG, cut_to(5), 5, "the file ends after case 5 of the 10 it states"),
    (True, TEN, cut_to(0, 72 + 8 + 16 + 8), None, "case {k} of the 10 it states cannot be read"),  # at a block boundary
    (True, TEN, cut_to(0, 72 + 8 + 32), None, "case {k} of the 10 it states cannot be read"),      # ... between cases
    (True, TEN, cut_to(0, 72 + 8 + 20), None, "case {k} of the 10 it states cannot be read"),      # inside a block
    (True, TEN, restated(8), 10, "the file holds 10 cases, more than the 8 it states"),
    (True, TEN, restated(2**31 - 1), 10, "case 11 of the 2147483647 it states cannot be read"),
    (True, TEN, command(2, 252), None, "case {k} of the 10 it states cannot be read"),  # cells out of step
]


@pytest.fixture(params=range(len(DAMAGED)))
def damaged(request, tmp_path):
    compress, frame, damage, whole, said = DAMAGED[request.param]
    path = tmp_path / "d.murv"
    murvio.write(frame, path, compress=compress)
    data = path.read_bytes()
    case = 8 * struct.unpack_from("<i", data, 68)[0]
    start = len(data) - (10 * case if not compress else 72 * 2 + 8 + 32)
    path.write_bytes(damage(data, start, case))
    if whole is None:
        whole = murvio._murvio.bulk_read(str(path))
    return path, frame, whole, f"{path}: damaged: " + said.format(m=whole, k=whole + 1)


@pytest.mark.parametrize("threads", [False, True])
def test_damaged_files_give_every_whole_case_and_say_where(damaged, split_small, threads):
    path, frame, whole, said = damaged
    want = frame.iloc[:whole] if whole <= 10 else murvio.read(path, labels=False, missing="keep")
    assert len(want) == whole
    with pytest.warns(murvio.DamageWarning, match=said):
        with murvio.open(path) as f:
            pd.testing.assert_frame_equal(f.read(threads=threads), want)
    with pytest.raises(murvio.DamageError, match=said) as e:
        murvio.read(path, strict=True)
    assert "MURV_RC" not in str(e.value)
    with pytest.warns(murvio.DamageWarning, match=said):
        with murvio.open(path) as f:
            pd.testing.assert_frame_equal(pd.concat(list(f.iter_chunks(cases=3))), want)
    with murvio.open(path) as f, pytest.raises(murvio.DamageError, match=said):
        assert sum(map(len, f.iter_chunks(cases=3, strict=True))) == whole
    # Dask: an error on the client by default; or the whole cases, with a
    # warning from every partition that meets the damage (a compressed
    # file's partitions past it cannot tell where it is).
    with pytest.raises(murvio.DamageError, match=said):
        murvio.dask.read(path, cases_per_partition=4).compute(scheduler="sync")
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        got = murvio.dask.read(path, cases_per_partition=4, strict=False).compute(scheduler="sync")
    pd.testing.assert_frame_equal(got, want)
    by_parts = [re.match(said, str(w.message)) for w in caught if issubclass(w.category, murvio.DamageWarning)]
    assert any(by_parts) and (".murv: damaged: case" in said or all(by_parts))


def test_unstated_count_and_chunks(tmp_path):
    # No count in the header: buffers grow past their first guess (65,536
    # cases) without losing what they hold.
    n = 70_000
    df = pd.DataFrame({"a": np.arange(n, dtype="float64"), "s": [f"s{i % 1000}" for i in range(n)],
                       "d": pd.to_datetime("2020-01-01") + pd.to_timedelta(np.arange(n), unit="s")})
    path = tmp_path / "u.murv"
    murvio.write(df, path, compress=False)
    restate_count(path, -1)
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        pd.testing.assert_frame_equal(murvio.read(path), df)
        with murvio.open(path) as f:
            pd.testing.assert_frame_equal(pd.concat(f.iter_chunks(cases=30_000)), df)
    assert len(murvio.dask.read(path, cases_per_partition=25_000).compute(scheduler="sync")) == n


@pytest.mark.parametrize("compress", [True, False])
def test_split_read_equals_one_thread(tmp_path, table, split_small, compress):
    path = tmp_path / "t.murv"
    murvio.write(table, path, compress=compress)
    with murvio.open(path) as f:
        one = f.read(labels=True, threads=False)
        two = f.read(labels=True, threads=True)
        part = f.read(columns=["long", "x"], cases=slice(333, 777), threads=True)
    pd.testing.assert_frame_equal(two, one)
    pd.testing.assert_frame_equal(part, one[["long", "x"]].iloc[333:777])


def test_names_made_valid_with_a_warning(tmp_path):
    df = pd.DataFrame({"first name": [1], "1st": [2], "BY": [3], "ok": [4], "OK": [5]})
    path = tmp_path / "n.murv"
    with pytest.warns(UserWarning, match="'first name' -> first_name"):
        murvio.write(df, path)
    assert list(murvio.read(path).columns) == ["first_name", "v1st", "BY_", "ok", "OK_2"]


def test_errors_and_warnings_carry_the_library_code(tmp_path):
    ok = tmp_path / "ok.murv"
    murvio.write(pd.DataFrame({"a": [1.0]}), ok)
    with pytest.raises(KeyError, match="nosuch"):
        murvio.read(ok, columns=["nosuch"])
    bad = tmp_path / "bad.murv"
    bad.write_bytes(b"$FL2" + b"\0" * 50)
    with pytest.raises(murvio.Error, match="MURV_RC_BAD_FILE") as e:
        murvio.read_metadata(bad)
    assert (e.value.code, e.value.name) == (6, "MURV_RC_BAD_FILE")
    assert "cannot be read as a system file" in str(e.value)
    with pytest.raises(ValueError, match="32767"):
        murvio.write(pd.DataFrame({"s": ["x" * 40000]}), tmp_path / "long.murv")
    # A refused definition leaves no file behind; a cut label is stored with a warning.
    refused = tmp_path / "refused.murv"
    with pytest.raises(murvio.Error) as e:
        murvio.write(pd.DataFrame({"s": ["abcdefghijk"]}), refused, metadata={"variables": {"s": {"missing": (1, "x")}}})
    assert e.value.name == "MURV_RC_SHORT_STRING_EXPECTED" and not refused.exists()
    with pytest.warns(murvio.CodeWarning, match="MURV_RC_VALUE_LABEL_CUT"):
        murvio.write(pd.DataFrame({"a": [1.0]}), ok, metadata={"variables": {"a": {"value_labels": {1: "y" * 200}}}})
    assert murvio.read_metadata(ok).variables["a"].value_labels == {1.0: "y" * 120}


def test_dask_partitions_threaded_and_on_a_local_cluster(tmp_path):
    from distributed import Client, LocalCluster
    n = 50_000
    rng = np.random.default_rng(1)
    df = pd.DataFrame({"g": rng.integers(0, 7, size=n).astype("float64"), "v": rng.normal(size=n)})
    path = tmp_path / "g.murv"
    murvio.write(df, path)
    want = df.groupby("g").v.mean().sort_index()
    ddf = murvio.dask.read(path, cases_per_partition=12_000)
    assert ddf.npartitions == 5 and ddf.divisions[0] == 0 and ddf.divisions[-1] == n - 1
    pd.testing.assert_series_equal(ddf.groupby("g").v.mean().compute(scheduler="threads").sort_index(), want)
    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None) as cluster, \
            Client(cluster, timeout=60) as client:
        got = murvio.dask.read(path, cases_per_partition=10_000).groupby("g").v.mean().compute().sort_index()
        assert len(client.scheduler_info()["workers"]) == 2
        # Partitions computed in the workers, written in order by one writer here.
        out = tmp_path / "out.murv"
        murvio.dask.write(murvio.dask.read(path, cases_per_partition=7_000), out, metadata=murvio.read_metadata(path))
        pd.testing.assert_frame_equal(murvio.read(out), df)
        # Damage found in a worker process is raised on the client, in words.
        cut = tmp_path / "cut.murv"
        murvio.write(df, cut, compress=False)
        cut.write_bytes(cut.read_bytes()[:-16 * 1000 - 8])
        with pytest.raises(murvio.DamageError, match=f"{cut}: damaged: the file ends inside case 49000 of the 50000"):
            murvio.dask.read(cut, cases_per_partition=10_000).v.sum().compute()
    pd.testing.assert_series_equal(got, want)


LABELS_N = {0.0: "no", 1.0: "yes", 9.0: "ref"}
LABELS_S = {"n": "no", "y": "yes", "r": "ref"}


# (column, its value labels, with metadata or through what read() keeps)
@pytest.mark.parametrize("values, labels", [([0.0, 1.0, 9.0, 1.0], LABELS_N), (["n", "y", "r", "y"], LABELS_S)])
@pytest.mark.parametrize("with_metadata", [True, False])
def test_labelled_data_written_back_keeps_its_codes(tmp_path, values, labels, with_metadata):
    p, q = tmp_path / "p.murv", tmp_path / "q.murv"
    murvio.write(pd.DataFrame({"v": values}), p, metadata={"variables": {"v": {"value_labels": labels}}})
    df = murvio.read(p, labels=True)
    murvio.write(df, q, metadata=murvio.read_metadata(p) if with_metadata else None)
    assert murvio.read(q)["v"].tolist() == values
    assert murvio.read(q, labels=True)["v"].tolist() == ["no", "yes", "ref", "yes"]
    assert murvio.read_metadata(q).variables["v"].value_labels == labels
    # An ordinary Categorical is numbered 1..n.
    murvio.write(pd.DataFrame({"c": pd.Categorical(["b", "a", "b"], categories=["b", "a"])}), q)
    assert murvio.read(q)["c"].tolist() == [1.0, 2.0, 1.0]


MIDNIGHT = pd.Timestamp("2024-02-29 23:59:59")


# (column, what reads back, the warning its write gives or the error it raises)
ROUND_TRIPS = [
    (pd.Series([MIDNIGHT + pd.Timedelta(microseconds=u) for u in (0, 1, 499_999, 999_998)]
               + [pd.Timestamp("2024-03-01 00:00:00.000001"), pd.NaT]), "same to the microsecond", None),
    (pd.Series([2**53 + 1, 5], dtype="int64"), [float(2**53), 5.0], "beyond 2\\*\\*53"),
    (pd.Series([2**53, None], dtype="Int64"), [float(2**53), np.nan], None),
    (pd.Series([1 + 2j, 3j]), TypeError, "complex"),
    (pd.Series([1 + 2j, "x"], dtype=object), TypeError, "complex"),
    (pd.Series(pd.to_timedelta(["1 days 02:03:04.5", None])), [93784.5, np.nan], "TIME format"),
    (pd.Series(pd.to_datetime(["2024-01-01 12:00"]).tz_localize("Europe/Paris")),
     [pd.Timestamp("2024-01-01 11:00")], "stored in UTC"),
    (pd.Series(["a\0b", None, np.nan, "", "c"]), ["a", "", "", "", "c"], "NUL"),
]


@pytest.mark.parametrize("column, back, warns", ROUND_TRIPS)
def test_round_trip_of_odd_columns(tmp_path, column, back, warns):
    path = tmp_path / "r.murv"
    df = pd.DataFrame({"v": column})
    if back is TypeError:
        with pytest.raises(TypeError, match=warns):
            murvio.write(df, path)
        assert not path.exists()
        return
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        murvio.write(df, path)
    assert [str(w.message) for w in caught if warns and re.search(warns, str(w.message))] or not warns
    assert not [w for w in caught if not warns or not re.search(warns, str(w.message))]
    got = murvio.read(path)["v"]
    if back == "same to the microsecond":
        assert (got - column).abs().max() <= pd.Timedelta(microseconds=1)
        assert (got.dropna().astype("int64") % 1000 == 0).all() and got.isna().tolist() == column.isna().tolist()
    else:
        assert got.tolist() == back or got.isna().tolist() == pd.isna(pd.Series(back)).tolist() and \
            got.dropna().tolist() == [b for b in back if not pd.isna(b)]


# (metadata, the error or warning it gives)
@pytest.mark.parametrize("meta, raises, match", [
    ({"variables": {"v": {"measure": "interval"}}}, ValueError, "'nominal', 'ordinal', 'scale'"),
    ({"variables": {"v": {"alignment": "middle"}}}, ValueError, "'left', 'right', 'center'"),
    ({"file_label": "é" * 40}, UserWarning, "file label: stored cut to 64 bytes \\(it holds at most 64\\)"),
    ({"documents": ["ok", "x" * 81]}, UserWarning, "document line 2: stored cut to 80 bytes"),
])
def test_metadata_refused_or_cut(tmp_path, meta, raises, match):
    path = tmp_path / "m.murv"
    if raises is UserWarning:
        with pytest.warns(UserWarning, match=match):
            murvio.write(pd.DataFrame({"v": [1.0]}), path, metadata=meta)
        got = murvio.read_metadata(path)
        assert len((got.file_label or "").encode()) <= 64 and all(len(d.encode()) <= 80 for d in got.documents)
    else:
        with pytest.raises(raises, match=match):
            murvio.write(pd.DataFrame({"v": [1.0]}), path, metadata=meta)


def regular(tmp_path):
    old = tmp_path / "old.murv"
    murvio.write(pd.DataFrame({"old": [1.0]}), old)
    old.chmod(0o600)
    return old, old


def symlink(tmp_path):
    target, link = regular(tmp_path)
    (tmp_path / "link.murv").symlink_to(target)
    return tmp_path / "link.murv", target


def foreign(tmp_path):
    if os.geteuid() != 0:
        pytest.skip("giving a file to another user needs root")
    old, _ = regular(tmp_path)
    os.chown(old, 12345, 23456)
    return old, old


def fifo(tmp_path):
    os.mkfifo(tmp_path / "pipe")
    return tmp_path / "pipe", None


def device(tmp_path):
    if os.geteuid() != 0:
        pytest.skip("making a device node needs root")
    os.mknod(tmp_path / "null", 0o666 | stat.S_IFCHR, os.makedev(1, 3))
    return tmp_path / "null", None


def directory(tmp_path):
    return tmp_path, None


def being_read(tmp_path):
    old, _ = regular(tmp_path)
    return old, None


# (destination, what is refused with which error, or None when the write replaces the target)
@pytest.mark.parametrize("make, refused", [
    (regular, None), (symlink, None), (foreign, None), (fifo, "named pipe"), (device, "a device"),
    (directory, IsADirectoryError), (being_read, "open for reading"),
])
def test_write_destinations(tmp_path, make, refused):
    dest, target = make(tmp_path)
    before = os.lstat(dest)
    owner = (os.stat(target).st_uid, os.stat(target).st_gid) if target else None
    new = pd.DataFrame({"new": [2.0, 3.0]})
    if isinstance(refused, str) and make is not being_read:
        with pytest.raises(murvio.Error, match=refused):
            murvio.read(dest)
    if refused is None:
        murvio.write(new, dest)
        pd.testing.assert_frame_equal(murvio.read(dest), new)
        assert stat.S_IMODE(os.stat(target).st_mode) == 0o600 and os.lstat(dest).st_mode == before.st_mode
        assert (os.stat(target).st_uid, os.stat(target).st_gid) == owner
        assert sorted(os.listdir(tmp_path)) == sorted({dest.name, target.name})
        return
    with murvio.open(dest) if make is being_read else open(os.devnull) as held:
        with pytest.raises(murvio.Error) as e:
            murvio.write(new, dest)
    assert isinstance(e.value, OSError)
    if isinstance(refused, str):
        assert refused in str(e.value)
    else:
        assert isinstance(e.value, refused)
    after = os.lstat(dest)
    assert (after.st_mode, after.st_ino, after.st_size) == (before.st_mode, before.st_ino, before.st_size)
    assert held is not None


# A write that fails at any step leaves the file at the path byte for byte.
@pytest.mark.parametrize("frame, metadata", [
    (pd.DataFrame(), None),                                                 # no variables
    (pd.DataFrame({"s": ["abcdefghijk"]}), {"variables": {"s": {"missing": (1, "x")}}}),
    (pd.DataFrame({"v": [1.0]}), {"weight": "nosuch"}),
    (pd.DataFrame({"v": [1.0]}), {"variables": {"v": {"measure": 7}}}),
])
def test_failed_write_keeps_the_old_file(tmp_path, frame, metadata):
    path = tmp_path / "k.murv"
    murvio.write(TEN, path)
    data = path.read_bytes()
    with pytest.raises((murvio.Error, ValueError)):
        murvio.write(frame, path, metadata=metadata)
    assert path.read_bytes() == data and os.listdir(tmp_path) == ["k.murv"]


# (path, the error a read and a write give)
@pytest.mark.parametrize("path, error", [
    (None, TypeError), (3, TypeError), (b"x.murv", TypeError),
    ("missing.murv", FileNotFoundError), (".", IsADirectoryError),
])
def test_paths(tmp_path, monkeypatch, path, error):
    monkeypatch.chdir(tmp_path)
    with pytest.raises(error):
        murvio.read(path)
    if error is not FileNotFoundError:
        with pytest.raises(error):
            murvio.write(TEN, path)
    assert os.listdir(tmp_path) == []
    with pytest.raises(TypeError):
        murvio.write(None, "x.murv")


def test_case_selection_follows_python(tmp_path):
    path = tmp_path / "c.murv"
    murvio.write(TEN, path)
    for cases in (-1, 3, slice(-3, None), slice(2, -2), slice(8, 20), slice(-20, 2), slice(5, 2)):
        want = TEN.iloc[[cases]] if isinstance(cases, int) else TEN.iloc[cases]
        pd.testing.assert_frame_equal(murvio.read(path, cases=cases), want)
    for cases, error in ((10, IndexError), (-11, IndexError), (slice(0, 5, 2), ValueError), ("1", ValueError)):
        with pytest.raises(error):
            murvio.read(path, cases=cases)


def test_close_during_read_waits_or_refuses(tmp_path):
    path = tmp_path / "big.murv"
    n = 300_000
    murvio.write(pd.DataFrame({f"v{i}": np.arange(n, dtype="float64") for i in range(8)}), path, compress=False)
    for _ in range(10):
        f = murvio.open(path)
        got = []

        def reader():
            try:
                got.append(len(f.read(threads=False)))
            except ValueError as e:
                got.append(str(e))
        t = threading.Thread(target=reader)
        t.start()
        f.close()
        # The handle number is free again: another file may take it.
        with murvio.open(path) as other:
            t.join()
            assert got in ([n], ["I/O operation on closed file"])
            assert len(other.read(cases=slice(0, 5))) == 5
    with pytest.raises(ValueError, match="I/O operation on closed file"):
        f.read()
    with pytest.raises(ValueError, match="I/O operation on closed file"):
        next(f.iter_chunks())


def test_dask_write_in_order_and_only_when_complete(tmp_path, table):
    import dask.dataframe as dd
    out = tmp_path / "out.murv"
    t = table.copy()
    t.loc[::3, "word"] = None
    want = t.astype({c: "float64" for c in ("count", "flag", "small", "nullable")}).assign(word=t.word.fillna(""))
    ddf = dd.from_pandas(t, npartitions=7)
    murvio.dask.write(ddf, out, metadata={"file_label": "parts", "variables": {"x": {"label": "The x"}}}, compress=False)
    pd.testing.assert_frame_equal(murvio.read(out, labels=True), want)
    m = murvio.read_metadata(out)
    assert (m.file_label, m.variables["x"].label, m.variables["long"].type) == (
        "parts", "The x", max(len(s.encode()) for s in t["long"]))
    # A partition that fails leaves the old file byte for byte, and nothing beside it.
    before = out.read_bytes()

    def fail_late(part):
        if part.index[0] > 500:
            raise RuntimeError("a partition failed")
        return part
    with pytest.raises(RuntimeError, match="a partition failed"):
        murvio.dask.write(ddf.map_partitions(fail_late, meta=ddf._meta), out)
    assert out.read_bytes() == before and os.listdir(tmp_path) == ["out.murv"]
    # Written back, with its metadata, over the file it is read from.
    murvio.dask.write(murvio.dask.read(out, cases_per_partition=300), out, metadata=murvio.read_metadata(out))
    pd.testing.assert_frame_equal(murvio.read(out, labels=True), want)
    assert murvio.read_metadata(out).compression
