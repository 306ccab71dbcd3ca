"""Files as other tools write them."""

import kvbigdata as kv
import numpy as np
import pytest

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
