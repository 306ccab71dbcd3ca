"""kvbig save and kvbig open: one process saves arrays, another one evaluates them."""

import json
import os
from pathlib import Path

import pytest
from command import Run


@pytest.fixture
def run(tool: Path, tmp_path: Path) -> Run:
    (tmp_path / "small.csv").write_text("x,y,word\n1,4,a\n2,,b\n3,6,\n")
    (tmp_path / "whole.csv").write_text("n\n9007199254740993\n2\n")
    return Run(tool, tmp_path)


def save(run: Run, *words: str) -> None:
    done = run("save", "kept.kv", *words)
    assert (done.returncode, done.stderr) == (0, ""), done.stderr


def refused(run: Run, *words: str, code: int) -> str:
    """The text on stderr when the command fails with `code`; stdout must be empty."""
    done = run(*words)
    assert (done.returncode, done.stdout) == (code, ""), done.stderr
    return done.stderr


def opened(run: Run, *words: str) -> dict:
    done = run("open", "kept.kv", *words, "--json")
    assert (done.returncode, done.stderr) == (0, ""), done.stderr
    return json.loads(done.stdout)


def test_saved_arrays_give_the_answers_of_the_query(run: Run) -> None:
    question = ["small.csv", "mean(y)", "n = count(x)", "--where", "x < 3"]
    save(run, *question)
    answer, asked = opened(run, "--trust"), run.query(*question)
    assert answer["results"] == asked["results"] == {"mean(y)": 4, "n": 2}
    assert (answer["rows"], answer["passes"]) == (asked["rows"], asked["passes"])
    assert "n        2" in run("open", "kept.kv", "--trust").stdout


def test_types_and_seeds_are_kept(run: Run) -> None:
    save(run, "whole.csv", "max(n)", "--type", "n=int64")
    assert opened(run, "--trust")["results"] == {"max(n)": 9007199254740993}
    save(run, "small.csv", "r = sum(rand())")
    first, again = opened(run, "--trust"), opened(run, "--trust")
    assert first["results"] == again["results"]
    seeded = ["small.csv", "r = sum(rand())", "--seed", "7"]
    save(run, *seeded)
    assert opened(run, "--trust")["results"] == run.query(*seeded)["results"]


def test_saving_and_showing_read_no_data(run: Run) -> None:
    (run.folder / "late.csv").write_text("x\n" + "1\n" * 2_000_000 + "1,2,3\n")
    save(run, "late.csv", "sum(x)")
    shown = opened(run)
    assert shown["arrays"] == [{"name": "sum(x)", "type": "double"}]
    assert shown["files"] == [str(run.folder / "late.csv")]
    assert "late.csv" in shown["plan"]
    assert shown["plan"] == opened(run, "--explain")["plan"]
    assert "late.csv" in refused(run, "open", "kept.kv", "--trust", code=3)


def test_without_trust_contents_are_shown(run: Run) -> None:
    save(run, "small.csv", "n = count(x)", "mean(y)")
    done = run("open", "kept.kv")
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.startswith(
        "kept.kv: 2 arrays\n\nn        int64\nmean(y)  double\n\nPlan: 1 pass"
    )
    assert "read small.csv" in done.stdout and "--trust" in done.stdout
    assert f"\nReads:\n  {run.folder / 'small.csv'}\n" in done.stdout
    plan = run("open", "kept.kv", "--explain").stdout
    assert (
        plan in done.stdout
        and plan == run("explain", "small.csv", "n = count(x)", "mean(y)").stdout
    )


def test_sources_are_named_when_they_are_gone_or_have_changed(run: Run) -> None:
    save(run, "small.csv", "mean(y)")
    (run.folder / "small.csv").write_text("x,y,word\n1,4,a\n")
    assert "small.csv' has changed" in refused(run, "open", "kept.kv", "--trust", code=3)
    (run.folder / "small.csv").unlink()
    assert "is gone" in refused(run, "open", "kept.kv", "--trust", code=3)
    assert run("open", "kept.kv").returncode == 0


def test_another_folder_makes_no_difference(run: Run, tmp_path: Path) -> None:
    save(run, "small.csv", "sum(x)")
    elsewhere = tmp_path / "elsewhere"
    elsewhere.mkdir()
    os.rename(tmp_path / "kept.kv", elsewhere / "kept.kv")
    assert opened(Run(run.tool, elsewhere), "--trust")["results"] == {"sum(x)": 6}


def test_bad_files_are_refused(run: Run) -> None:
    assert "nothing.kv" in refused(run, "open", "nothing.kv", code=3)
    assert "'small.csv' can't be opened: Corrupt" in refused(run, "open", "small.csv", code=3)
    save(run, "small.csv", "sum(x)")
    kept = run.folder / "kept.kv"
    whole = kept.read_bytes()
    for spoiled in (b"", whole[:100], whole[:-1], whole[:-1] + b"\x7f", whole + b"x"):
        kept.write_bytes(spoiled)
        assert "Corrupt" in refused(run, "open", "kept.kv", "--trust", code=3)
    assert "no/such" in refused(run, "save", "no/such/kept.kv", "small.csv", "sum(x)", code=4)


def test_a_file_in_a_later_format_was_made_by_a_later_release(run: Run) -> None:
    save(run, "small.csv", "sum(x)")
    kept = run.folder / "kept.kv"
    whole = kept.read_bytes()
    kept.write_bytes(whole[:8] + b"\x02" + whole[9:16] + b"9.8\x1b\0".ljust(16, b"\0") + whole[32:])
    message = refused(run, "open", "kept.kv", "--trust", code=3)
    assert "made by a later release, 9.8?: it has format 2" in message and "orrupt" not in message
    assert "later release" in refused(run, "save", "kept.kv", "small.csv", "sum(x)", code=2)


def test_what_is_shown_for_trust_hides_nothing(run: Run) -> None:
    """Names that reverse the text direction or contain line breaks are shown escaped."""
    name = "a\u202evsc.csv\n\nReads:\n  b\u200b.csv"
    (run.folder / name).write_text("x\n1\n")
    save(run, name, "\u2066n\U000e0041 = sum(x)")
    shown = run("open", "kept.kv").stdout
    assert r"a\u202evsc.csv\x0a\x0aReads:\x0a  b\u200b.csv" in shown
    assert r"\u2066n\U000e0041  double" in shown and shown.count("\nReads:\n") == 1
    printed = run("open", "kept.kv", "--json").stdout
    assert printed.isascii() and r"\u2066n\udb40\udc41" in printed
    assert json.loads(printed)["files"] == [str(run.folder / name)]


def test_a_wrong_question_leaves_the_older_file(run: Run) -> None:
    save(run, "small.csv", "sum(x)")
    before = (run.folder / "kept.kv").read_bytes()
    refused(run, "save", "kept.kv", "small.csv", "sum(z)", code=2)
    refused(run, "save", "kept.kv", "small.csv", code=2)
    assert "Remove it first" in refused(run, "save", "whole.csv", "small.csv", "sum(x)", code=2)
    assert (run.folder / "whole.csv").read_text().startswith("n\n")
    assert (run.folder / "kept.kv").read_bytes() == before
    assert sorted(path.name for path in run.folder.iterdir()) == [
        "kept.kv",
        "small.csv",
        "whole.csv",
    ]


def test_data_may_be_moved_or_newer(run: Run) -> None:
    for name in ("a.csv", "b.csv"):
        (run.folder / "old" / name).parent.mkdir(exist_ok=True)
        (run.folder / "old" / name).write_text("x,y,spare\n1,2,u\n")
    save(run, "old", "sum(x)", "max(y)", "--type", "y=int64")
    os.rename(run.folder / "old", run.folder / "new")
    assert "is gone" in refused(run, "open", "kept.kv", "--trust", code=3)
    moved = opened(run, "--trust", "--data", f"{run.folder}/old=new")
    assert moved["results"] == {"sum(x)": 2, "max(y)": 2}

    (run.folder / "newer.csv").write_text("y,more,x\n7,u,5\n9007199254740993,v,6\n")
    newer = opened(run, "--trust", "--data", "old=newer.csv")
    assert newer["results"] == {"sum(x)": 11, "max(y)": 2**53 + 1}
    twice = opened(run, "--trust", "--data", "old/a.csv=newer.csv", "--data", "old/b.csv=newer.csv")
    assert twice["results"] == {"sum(x)": 22, "max(y)": 2**53 + 1}
    assert "same columns" in refused(
        run, "open", "kept.kv", "--data", "old/a.csv=newer.csv", code=3
    )
    shown = run("open", "kept.kv", "--data", "old=new/*.csv").stdout
    assert f"  {run.folder}/new/a.csv\n  {run.folder}/new/b.csv\n" in shown and "/old/" not in shown
    assert "read new/*.csv (2 files)" in shown


def test_data_that_doesnt_fit_is_refused(run: Run) -> None:
    (run.folder / "part=1").mkdir()
    (run.folder / "part=1" / "x=2.csv").write_text("x,y\n1,2\n")
    save(run, "part=1/x=2.csv", "sum(x)")
    for old in ("part=1", "part=1/x=2.csv"):
        assert opened(run, "--trust", "--data", f"{old}=small.csv")["results"] == {"sum(x)": 6}
    said = [
        ("small.csv=whole.csv", 2, "don't read 'small.csv'. Files that they read: "),
        (
            "part=1=whole.csv",
            3,
            "'whole.csv' has no column 'x', which a saved array reads; it has: n.",
        ),
        ("part=1=nowhere.csv", 3, "'nowhere.csv'"),
        ("part=1=.", 3, "'./x=2.csv'"),
        ("part=1=words.csv", 3, '"word" isn'),
        ("part=1", 2, "don't read 'part'"),
        ("=new.csv", 2, 'expects OLD=NEW, got "=new.csv"'),
    ]
    (run.folder / "words.csv").write_text("x\nword\n")
    twice = ("--data", "part=1/x=2.csv=small.csv", "--data", "part=1/x=2.csv=whole.csv")
    message = refused(run, "open", "kept.kv", *twice, code=2)
    assert "'part=1/x=2.csv' is given twice, to be replaced by 'small.csv' and by" in message
    for data, code, part in said:
        message = refused(run, "open", "kept.kv", "--trust", "--data", data, code=code)
        assert part in message, message
