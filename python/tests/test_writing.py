"""`write_parquet`, `write_csv`, `write_ipc` and `write_npy`."""

from pathlib import Path

import kvbigdata as kv
import numpy as np
import pyarrow as pa
import pyarrow.csv
import pyarrow.parquet as pq
import pytest

pytestmark = pytest.mark.usefixtures("arrays")

ROWS = {
    "x": np.array([1.5, np.nan, -0.0]),
    "n": np.array([1, 2, 3], np.uint8),
    "t": np.array(["2020-01-01", "NaT", "2021-02-03T04:05:06.7"], "datetime64[us]"),
    "d": np.array([1, "NaT", -3], "timedelta64[us]"),
    "s": ["a", None, "ü"],
    "ok": np.array([True, False, True]),
}


def test_every_format_opens_with_the_same_rows(tmp_path: Path) -> None:
    table = kv.table(ROWS)
    assert table.write_parquet(tmp_path / "a.parquet") == 3
    again = kv.compute(kv.read(tmp_path / "a.parquet"))
    assert again.schema == kv.compute(table).schema
    assert repr(again.to_pydict()) == repr(kv.compute(table).to_pydict())
    assert table.write_ipc(tmp_path / "a.feather") == 3
    read = pa.ipc.open_file(tmp_path / "a.feather").read_all()
    assert read.schema == again.schema and repr(read.to_pydict()) == repr(again.to_pydict())
    assert table.write_csv(tmp_path / "a.csv") == 3
    assert pa.csv.read_csv(tmp_path / "a.csv").column_names == list(ROWS)
    for name in ("x", "n", "t", "d", "ok"):
        assert table[name].write_npy(tmp_path / f"{name}.npy") == 3
        np.testing.assert_array_equal(np.load(tmp_path / f"{name}.npy"), ROWS[name])
    cube = np.arange(24.0).reshape(4, 3, 2)
    kv.from_numpy(cube).write_npy(tmp_path / "cube.npy")
    np.testing.assert_array_equal(np.load(tmp_path / "cube.npy"), cube)


def test_a_folder_and_another_answer_share_a_pass(tmp_path: Path) -> None:
    table = kv.table(ROWS)
    done = table.write_parquet(tmp_path / "out", compute=False)
    assert not (tmp_path / "out").exists()
    assert kv.compute(table.x.sum(), done)[1] == 3
    assert kv.facts().passes == 1
    assert pq.read_table(tmp_path / "out").num_rows == 3
    table.write_csv(tmp_path / "keyed", partition_by="s")
    folders = sorted(path.name for path in (tmp_path / "keyed").iterdir())
    assert folders == ["_kv_manifest.json", "s=%C3%BC", "s=__HIVE_DEFAULT_PARTITION__", "s=a"]


def test_what_exists_is_replaced_only_if_that_is_asked_for(tmp_path: Path) -> None:
    path = tmp_path / "a.csv"
    table = kv.table({"x": [1, 2]})
    table.write_csv(path)
    with pytest.raises(OSError, match="exists already") as caught:
        table.write_csv(path)
    assert caught.value.identifier == "KALVEX:sink:TargetExists"  # type: ignore[attr-defined]
    assert kv.table({"x": [3]}).write_csv(path, mode="overwrite") == 1
    assert path.read_text() == '"x"\n3\n'
    with pytest.raises(ValueError, match='mode must be "error" or "overwrite"') as mistaken:
        table.write_csv(path, mode="append")  # type: ignore[arg-type]
    assert mistaken.value.identifier == "KALVEX:sink:Mode"  # type: ignore[attr-defined]
    read = kv.read(path)
    with pytest.raises(ValueError, match="is read to compute"):
        read.write_csv(path, mode="overwrite")
    assert read.x.sum().compute() == 3
