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
