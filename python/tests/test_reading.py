"""Files as other tools write them."""

import bz2
import gzip
from decimal import Decimal

import kvbigdata as kv
import numpy as np
import pyarrow as pa
import pytest
from pyarrow import parquet as pq

pytestmark = pytest.mark.usefixtures("arrays")


def test_csv_is_read_as_it_is_written(tmp_path):
    path = tmp_path / "table.csv"
    path.write_text("x;day\n1;31.12.2013\nN/A;NULL\n")
    options = {"types": {"day": "datetime(%d.%m.%Y)"}, "missing": ["NULL", "N/A"]}
    t = kv.read(path, **options)
    expected = np.array(["2013-12-31", "NaT"], "M8[us]")
    np.testing.assert_array_equal(t.day.compute(), expected)
    np.testing.assert_array_equal(t.x.compute(), [1, np.nan])
    assert "separated by semicolons" in t.x.explain()
    kv.save(tmp_path / "day.kv", day=t.day)
    saved = kv.open(tmp_path / "day.kv", trust=True)["day"]
    np.testing.assert_array_equal(saved.compute(), expected)
    with pytest.raises(kv.RowSpaceError):
        t.x + kv.read(path, separator=";", missing="N/A").x
    path.write_text("1,a\n2,b\n")
    bare = kv.read_csv(path, header=False)
    assert bare.columns == ["column_1", "column_2"]
    assert bare.column_1.sum().compute() == 3
    with pytest.raises(ValueError, match="other than a quote"):
        kv.read(path, separator=";;")


def test_compressed_csv_is_read_as_its_text(tmp_path):
    text = b"x;y\n" + b"".join(b"%d;%d\n" % (i, i % 7) for i in range(100_000))
    half = len(text) // 2
    (tmp_path / "a.csv.gz").write_bytes(gzip.compress(text[:half]) + gzip.compress(text[half:]))
    (tmp_path / "a.csv.bz2").write_bytes(bz2.compress(text))
    for name, codec in {"a.csv.zst": "zstd", "a.csv.lz4": "lz4"}.items():
        with pa.CompressedOutputStream(str(tmp_path / name), codec) as out:
            out.write(text)
    for name in ["a.csv.gz", "a.csv.bz2", "a.csv.zst", "a.csv.lz4"]:
        t = kv.read(tmp_path / name)
        assert kv.compute([t.x.sum(), t.y.max()]) == [sum(range(100_000)), 6]
    assert kv.read(tmp_path).x.count_rows().compute() == 400_000
    kv.save(tmp_path / "sum.kv", total=kv.read(tmp_path / "a.csv.gz").x.sum())
    assert kv.open(tmp_path / "sum.kv", trust=True)["total"].compute() == sum(range(100_000))
    (tmp_path / "cut.gz").write_bytes(gzip.compress(text)[:-9])
    with pytest.raises(ValueError, match=r"cut.gz' can't be uncompressed: near byte \d+ .* gzip"):
        kv.read(tmp_path / "cut.gz").x.sum().compute()


def test_notes_have_the_types_of_the_source_where_they_are_other_ones(tmp_path):
    times = pa.array([0, 3600], pa.timestamp("s", tz="Europe/Berlin"))
    prices = pa.array([Decimal("1.10"), None], pa.decimal128(9, 2))
    table = pa.table({"x": [1.0, 2.0], "t": times, "price": prices})
    pq.write_table(table, tmp_path / "a.parquet")
    for t, zoned in (
        (kv.read(tmp_path / "a.parquet"), "timestamp[ms, tz=Europe/Berlin]"),
        (kv.from_arrow(table), "timestamp[s, tz=Europe/Berlin]"),
    ):
        assert t.notes == {"t": zoned, "price": "decimal128(9, 2)"}
        assert t.filter("x > 1").select("x", "t").head(1).notes == {"t": zoned}
        assert t.rename({"t": "u"}).assign(price="price * 2").filter("x > 1").notes == {"u": zoned}
        assert f"(from {zoned})" in repr(t) and "x: float64 (" not in repr(t)
        assert f"t ({zoned})" in t.explain()
        np.testing.assert_array_equal(t.t.compute(), np.array([0, 3600], "M8[s]"))


def typed_table(rows=70_000):
    """A table of the types that files have, with missing values."""
    x = np.arange(rows)
    return pa.table(
        {
            "whole": pa.array(x, mask=x % 11 == 0),
            "full": pa.array(x.astype("u2")),
            "real": x / 7,
            "half": pa.array((x % 100 / 8).astype("f2")),
            "flag": pa.array(x % 3 == 0, mask=x % 5 == 0),
            "text": pa.array([f"t{i % 9}" for i in x], mask=x % 13 == 0),
            "code": pa.array([f"c{i % 4}" for i in x]).dictionary_encode(),
            "time": pa.array(x * 10**9, pa.timestamp("ns", "UTC"), mask=x % 17 == 0),
        }
    )


@pytest.mark.parametrize("compression", [None, "lz4", "zstd"])
def test_arrow_files_are_read_as_parquet_is(tmp_path, compression):
    table = typed_table()
    options = pa.ipc.IpcWriteOptions(compression=compression)
    for name, new in {"a.feather": pa.ipc.new_file, "a.arrows": pa.ipc.new_stream}.items():
        with new(tmp_path / name, table.schema, options=options) as out:
            for start, stop in [(0, 10), (10, 10), (10, 40_000), (40_000, 70_000)]:
                out.write_table(table.slice(start, stop - start))
    pq.write_table(table, tmp_path / "a.parquet")
    expected = kv.read(tmp_path / "a.parquet").compute()
    for name in ["a.feather", "a.arrows"]:
        t = kv.read(tmp_path / name)
        assert t.compute().equals(expected)
        assert t.real.filter(t.whole > 100).mean().compute() == (
            kv.read(tmp_path / "a.parquet").filter(lambda p: p.whole > 100).real.mean().compute()
        )
    kv.save(tmp_path / "mean.kv", mean=kv.read_ipc(tmp_path / "a.feather").real.mean())
    saved = kv.open(tmp_path / "mean.kv", trust=True)["mean"].compute()
    assert saved == np.mean(np.arange(70_000) / 7)


def test_npy_files_are_read_as_numpy_reads_them(tmp_path):
    rng = np.random.default_rng(1)
    path = tmp_path / "x.npy"
    numbers = ["?", "i1", "<u2", ">i4", "<i8", "<f2", ">f4", "<f8", ">f8"]
    for dtype in [*numbers, "<M8[ns]", ">M8[D]", "<m8[s]"]:
        for shape in [(7,), (0,), (40_000, 3), (5, 2, 3)]:
            x = rng.integers(0, 100, shape).astype(dtype)
            expected = x.astype(f"{x.dtype.kind}8[us]") if x.dtype.kind in "mM" else x
            for array in [x, np.asfortranarray(x)]:
                np.save(path, array)
                actual = kv.read_npy(path).compute()
                assert actual.shape == x.shape
                np.testing.assert_array_equal(actual, expected)
    x = rng.normal(size=(3_000_000, 2))
    np.save(path, x)
    read = kv.read_npy(path)
    assert (read + x).sum().compute() == (kv.asarray(x) + x).sum().compute()
    assert kv.read(path).column_2.max().compute() == x[:, 1].max()
    np.save(tmp_path / "more.npy", x[:5])
    both = kv.read_npy([path, tmp_path / "more.npy"])
    np.testing.assert_array_equal(both.compute(), np.concatenate([x, x[:5]]))
    kv.save(tmp_path / "x.kv", x=read)
    np.testing.assert_array_equal(kv.open(tmp_path / "x.kv", trust=True)["x"].compute(), x)
    np.save(path, x[:5])
    with pytest.raises(OSError, match=r"x.npy' has changed"):
        read.compute()
    np.save(tmp_path / "other.npy", x[:5, 0])
    with pytest.raises(ValueError, match=r"n-by-1 of <f8, .* has n-by-2 of <f8") as error:
        kv.read_npy([path, tmp_path / "other.npy"])
    assert error.value.identifier == "KALVEX:datastore:DifferentArrays"
