"""What arrays and tables look like: first rows that are in memory, and nothing that computes."""

import datetime

import kvbigdata as kv
import numpy as np
import pandas as pd
import pytest

pytestmark = pytest.mark.usefixtures("arrays")


@pytest.fixture
def table(tmp_path):
    path = tmp_path / "rows.csv"
    path.write_text("x,when,word\n1.5,2024-02-29,a\n,,\n" + "3,2024-03-01,b\n" * 9)
    opened = kv.read(path)
    path.unlink()
    return opened


def never(values):
    raise AssertionError("no function of the user is called")


@pytest.mark.parametrize(
    ("make", "shown"),
    [
        (lambda t: t, "  x: float64            [1.5, nan, 3.0, 3.0, 3.0, ...]"),
        (lambda t: t.select("when"), "when: datetime64[us]  [2024-02-29 00:00:00, missing, "),
        (lambda t: t.word, "string (None,) [a, missing, b, b, b, ...] from "),
        (lambda t: np.sqrt(t.x * 2 + 1), "float64 (None,) [2.0, nan, 2.6"),
        (lambda t: t.filter("x > 2").word[:2], " [b, b, ...] from "),
        (lambda t: t.filter("x > 2").assign(y="x / 2"), "y: float64             [1.5, 1.5, "),
        (lambda t: t.x > 2, "bool (None,) [False, False, True, "),
        (lambda t: t.x + t.x.mean(), "float64 (None,) from "),
        (lambda t: t.x.map_chunks(never) + 1, "float64 (None,) from "),
        (lambda t: t.map_chunks(never).x, "float64 (None,) from "),
        (lambda t: t.x.max(), "float64 () from "),
        (lambda t: kv.asarray([3, 1]) + 1, "int64 (2,) [4, 2] from an array of 2 rows in memory"),
        (lambda t: kv.asarray(["a", None, "\n"]), r"string (3,) [a, missing, '\n'] from "),
        (lambda t: kv.arange(9)[kv.arange(9) % 2 == 1], "int64 (None,) [1, 3, ...] from arange"),
        (lambda t: kv.ones((2, 3))[:, 1:], "float64 (2, 2) [[1.0, 1.0], [1.0, 1.0]] from "),
        (lambda t: kv.from_pandas(pd.DataFrame({"n": [1, 2]})).n, "int64 (2,) [1, 2] from "),
        (lambda t: kv.from_pandas(pd.DataFrame({"n": [1, 2]})), "<kv.Table of 1 column from "),
        (lambda t: kv.zeros((2, 60)), "0.0, 0.0...] from "),
    ],
)
def test_first_rows_are_shown_as_far_as_they_are_in_memory(table, make, shown):
    with kv.no_compute():
        made = make(table)
        assert shown in repr(made)
        assert "test_looks.py, line " in repr(made)


def test_looking_changes_nothing(tmp_path):
    path = tmp_path / "numbers.csv"
    path.write_text("n\n" + "1\n" * 50)
    total = (kv.read(path).n + 1).sum()
    kv.arange(3).sum().compute()
    before = kv.facts()
    column = kv.read(path).n + 1
    assert "[2.0, 2.0, " in repr(column)
    assert kv.facts() == before and column.shape == (None,)
    assert total.compute() == column.sum().compute() == 100
    kv.save(tmp_path / "saved.kv", column=column)
    assert "[" not in repr(kv.open(tmp_path / "saved.kv")["column"]).partition(" from ")[0]


def test_computed_values_of_every_type_keep_their_length():
    day = datetime.datetime(2024, 2, 29)
    t = kv.table({"when": np.array([day] * 3, "M8[us]"), "word": ["a", None, "b"], "n": [1, 2, 3]})
    for name in t.columns:
        rows = t[t.n > 0][name]
        assert rows.shape == (None,) and len(rows.compute()) == 3 == len(rows)


def test_notebooks_show_a_table_in_few_bytes():
    wide = kv.table({f"<b>{i}": ["&" * 500] for i in range(500)})
    shown = wide._repr_html_()
    assert len(shown.encode()) <= 20_000
    assert "<th>&lt;b&gt;0</th>" in shown and "460 aren&#x27;t shown" in shown
    assert kv.table({"n": [7]})._repr_html_().count("<td>7</td>") == 1
