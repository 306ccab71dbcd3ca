"""kvbig query: what it prints, on which stream, and with which exit code."""

import json
import os
import re
import resource
import shlex
import signal
import subprocess
import sys
import time
from functools import partial
from pathlib import Path

import pytest
from command import Run

ROWS = 336_776
OUT_OF_MEMORY = "out of memory|cannot allocate memory|failed to map segment"  # or the loader's
CLOSURE = "kalvex.bigdata.internal.lazyeval.Closure"

# Computed with Arrow from the same file.
TRUTH = {
    "mean(dep_delay)": 12.639070257304708,
    "std(dep_delay)": 40.21006089212995,
    "max(dep_delay)": 1301,
    "count(dep_delay)": 328_521,
    "mean(arr_delay)": 6.89537675731489,
    "sum(distance)": 350_217_607,
    "mean(arr_delay > 60)": 0.08251478727700311,
}


@pytest.fixture
def run(tool: Path, tmp_path: Path, flights: Path) -> Run:
    (tmp_path / "flights.csv").symlink_to(flights)
    (tmp_path / "small.csv").write_text("x,y,word,two words\n1,4,a,1\n2,,b,2\n3,6,,3\n")
    (tmp_path / "wide.csv").write_text("x\n9007199254740993\n5\n")
    (tmp_path / "more").mkdir()
    (tmp_path / "more" / "a.csv").write_text("x,y,word,two words\n4,1,c,4\n")
    (tmp_path / "more" / "b.csv").write_text("x,y,word,two words\n5,1,d,5\n")
    return Run(tool, tmp_path)


def test_answers_about_flights_are_right_and_take_one_pass(run: Run) -> None:
    answer = run.query("flights.csv", *TRUTH)
    assert answer["results"] == pytest.approx(TRUTH, rel=1e-14)
    assert list(answer["results"]) == list(TRUTH)
    assert (answer["rows"], answer["passes"]) == (ROWS, 1)
    assert answer["seconds"] > 0
    assert 1e6 < answer["peak_bytes"] < 1e9


def test_where_keeps_rows_for_all_expressions(run: Run) -> None:
    answer = run.query(
        "flights.csv", "mean(dep_delay)", "n = count(year)", "--where", 'origin == "JFK"'
    )
    assert answer["results"] == pytest.approx({"mean(dep_delay)": 12.112159099217665, "n": 111_279})
    assert answer["rows"] == ROWS


def test_an_answer_that_needs_another_one_takes_a_second_pass(run: Run) -> None:
    answer = run.query("flights.csv", "spread = std(dep_delay - mean(dep_delay))")
    assert answer["results"]["spread"] == pytest.approx(TRUTH["std(dep_delay)"], rel=1e-12)
    assert answer["passes"] == 2


@pytest.mark.parametrize(
    ("expression", "value"),
    [
        ("sum(x * 2 + 1)", 15),
        ("sum(-x ^ 2)", -14),
        ("sum(x % 2)", 2),
        ("sum(x / 2)", 3),
        ("mean(y)", 5),
        ("count(y)", 2),
        ("count(word)", 2),
        ('sum(word == "a" | x >= 3)', 2),
        ("sum(!(x > 1) & true)", 1),
        ("sum(isnan(y))", 1),
        ("sum(y > 0)", 2),
        ("sum(`two words`)", 6),
        ("max(x) - min(x)", 2),
        ("sum(x) * (60 * 60)", 21_600),
        ("mean(x) > 1", True),
        ("sum(x > mean(x))", 1),
        ("mean(minimum(x, 2))", 5 / 3),
        ("max(word)", "b"),
        ("mean(log(x - 1) > -1)", 2 / 3),
        ("sum(where(isnan(y), 100, y))", 110),
        ('max(where(x > 1, "z", word))', "z"),
        ("sum(x / 0)", "Infinity"),
        ("mean(y - y / 0)", "-Infinity"),
    ],
)
def test_expressions_mean_what_they_say(run: Run, expression: str, value) -> None:
    assert run.results("small.csv", f"r = {expression}")["r"] == pytest.approx(value)


def test_random_numbers_depend_only_on_the_seed(run: Run) -> None:
    words = ["mean(rand())", "std(rand())", "sum(distance)", "--where", "rand() < 0.1"]
    first = run.results("flights.csv", *words, "--seed", "7")
    assert run.results("flights.csv", *words, "--seed", "7") == first
    assert run.results("flights.csv", *words, "--seed", "8") != first
    assert run.results("flights.csv", *words) != run.results("flights.csv", *words)
    sampled = run.results("flights.csv", "n = count(year)", *words[-2:], "--seed", "7")["n"]
    assert sampled == pytest.approx(ROWS / 10, rel=0.03)  # five standard deviations
    assert first["mean(rand())"] == pytest.approx(0.5, abs=0.01)
    assert first["std(rand())"] == pytest.approx(12**-0.5, abs=0.01)


def test_each_call_of_rand_has_its_own_numbers_and_keeps_them(run: Run) -> None:
    answer = run.query(
        "flights.csv",
        "mean(rand() == rand())",
        "spread = var(rand() - mean(rand()))",
        "--seed",
        "1",
    )
    assert answer["results"] == pytest.approx(
        {"mean(rand() == rand())": 0, "spread": 1 / 12}, rel=0.02
    )


def test_the_number_of_threads_changes_no_digit(run: Run) -> None:
    files = [word for _ in range(5) for word in ("-f", "flights.csv")]
    words = ["flights.csv", *files, "std(dep_delay - mean(dep_delay))", "m = mean(sin(arr_delay))"]
    one, two = (run.query(*words, "--threads", count) for count in ("1", "2"))
    measured = ("seconds", "peak_bytes", "memory_peak_bytes")
    assert all(one.pop(name) > 0 and two.pop(name) > 0 for name in measured)
    assert json.dumps(one) == json.dumps(two)
    for wrong in ("0", "x", "-1", "1.5", "1025", "99999999999999999999"):
        expected = f'--threads: a whole number from 1 to 1024 is expected, got "{wrong}"\n'
        assert expected in run.refusal("flights.csv", "mean(distance)", f"--threads={wrong}")


def test_nothing_to_average_is_null(run: Run) -> None:
    (run.folder / "empty.csv").write_text("x,y\n")
    answer = run.query("empty.csv", "mean(x)", "count(x)", "sum(x)")
    assert answer["results"] == {"mean(x)": None, "count(x)": 0, "sum(x)": 0}
    assert answer["rows"] == 0
    assert run.results("small.csv", "mean(x)", "--where", "x > 99") == {"mean(x)": None}


@pytest.mark.parametrize(
    ("words", "total"),
    [
        (["small.csv", "-f", "more/a.csv", "--file", "more/b.csv"], 15),
        (["more"], 9),
        (["more/*.csv"], 9),
    ],
)
def test_files_folders_and_globs_make_one_table(run: Run, words: list[str], total: int) -> None:
    path, *rest = words
    assert run.results(path, "sum(x)", *rest) == {"sum(x)": total}


def test_words_after_two_dashes_are_not_options(run: Run) -> None:
    assert run.results("small.csv", "sum(x)", "--", "-sum(x)", "n = count(y)") == {
        "sum(x)": 6,
        "-sum(x)": -6,
        "n": 2,
    }
    (run.folder / "save").mkdir()
    (run.folder / "save" / "-a.csv").write_text("x\n7\n")
    (run.folder / "-a.csv").write_text("x\n8\n")
    assert json.loads(run("query", "--json", "--", "save", "max(x)").stdout)["results"] == {
        "max(x)": 7
    }
    assert json.loads(run("query", "--json", "--", "-a.csv", "max(x)").stdout)["results"] == {
        "max(x)": 8
    }
    assert "not expected: -x\n" in run("describe", "--", CLOSURE, "-x").stderr


def test_advice_can_be_copied(run: Run) -> None:
    (run.folder / "long.csv").write_text(f"{'n' * 81},{'m' * 80}\na,b\n")
    assert f"--type '{'m' * 80}=double'" in run.refusal("long.csv", f"mean({'m' * 80})")
    assert '--type with its name and "=double".' in run.refusal("long.csv", f"mean({'n' * 81})")
    assert "after all options: -- '-mean(x)'" in run("query", "small.csv", "-mean(x)").stderr
    assert 'See "kvbig query --help".' in run("query", "--nonsense").stderr


def test_a_file_says_how_it_is_written_or_the_user_does(run: Run) -> None:
    (run.folder / "semicolons.csv").write_text("x;day\n1;31.12.2013\nN/A;NULL\n")
    (run.folder / "tabs.txt").write_text("1\t2\n3\tNULL\n")
    plan = run("explain", "semicolons.csv", "max(x)").stdout
    assert "1 of 2 columns: x; separated by semicolons" in plan
    words = ["--missing", "NULL,N/A", "--type", "day=datetime(%d.%m.%Y)"]
    assert run.results("semicolons.csv", "sum(x)", "max(day)", *words) == {
        "sum(x)": 1,
        "max(day)": "2013-12-31T00:00:00",
    }
    words = ["tabs.txt", "sum(column_1 * column_2)", "--no-header", "--missing", "NULL"]
    assert run.results(*words) == run.results(*words, "--separator", "tab")
    assert run("save", "t.kv", *words, "--separator", "\\t").returncode == 0
    saved = run("open", "t.kv", "--trust", "--json").stdout
    assert json.loads(saved)["results"] == {"sum(column_1 * column_2)": 2}
    assert "other than a quote" in run.refusal("small.csv", "sum(x)", "--separator", "ab")
    assert "pattern of moments" in run.refusal("small.csv", "sum(x)", "--type", "x=datetime(%q)")


def test_help_lists_all_types(run: Run) -> None:
    refusal = run.refusal("small.csv", "sum(x)", "--type", "x=float")
    (listed,) = re.findall(r"types are: ([a-z0-9, ]+)\.", refusal)
    assert listed.replace(",", "") in run("query", "--help").stdout


def test_a_fixed_type_keeps_whole_numbers_exact(run: Run) -> None:
    message = run.refusal("wide.csv", "max(x)", code=3)
    assert "9007199254740993" in message and message.endswith("\nTry --type 'x=int64'.\n")
    assert run.results("wide.csv", "max(x)", "--type", "x=int64") == {"max(x)": 2**53 + 1}
    beyond = ["sum(x < 18446744073709551617)", "sum(x == -99999999999999999999)"]
    assert run.results("wide.csv", *beyond, "--type", "x=int64") == dict(
        zip(beyond, [2, 0], strict=True)
    )


def test_people_get_an_aligned_table_and_a_line_of_facts(run: Run) -> None:
    done = run(
        "query", "small.csv", "mean(y)", "third = sum(x) / 18", "max(word)", "mean(y - y / 0)"
    )
    assert done.returncode == 0
    *table, blank, facts = done.stdout.splitlines()
    assert table == [
        "mean(y)             5",
        "third               0.3333333333333333",
        "max(word)           b",
        "mean(y - y / 0)  -Inf",
    ]
    assert blank == ""
    memory = r"peak memory \d+\.\d MB, data \d\.\d MB \(limit \d+\.\d [MG]B\)"
    assert re.fullmatch(rf"3 rows, 1 pass, \d+\.\d\d s, {memory}", facts)


def test_a_text_from_a_file_cant_drive_the_terminal(run: Run) -> None:
    (run.folder / "evil.csv").write_text("x,word\n1,\x1b]0;owned\x07\n")
    done = run("query", "evil.csv", "max(word)")
    assert (done.returncode, "\x1b" in done.stdout) == (0, False)
    assert r"\x1b]0;owned\x07" in done.stdout
    assert "\x1b" not in run.refusal(
        "evil.csv", "max(x)", "--type", "word=int64", "--where", "word > 0", code=3
    )


def test_a_plan_reads_no_data(run: Run) -> None:
    (run.folder / "bad.csv").write_text("x,y\n" + "1,2\n" * 1_000_000 + "1,2,3\n")
    done = run("query", "bad.csv", "mean(x)", "--explain")
    assert (done.returncode, done.stderr) == (0, "")
    assert "bad.csv" in done.stdout
    assert re.search(r"mean\(#\d+\) .* expression 1:1\n", done.stdout)
    assert re.search(r"^Result 1: #\d+ +expression 1:1$", done.stdout, re.MULTILINE)
    plan = run("query", "bad.csv", "mean(x)", "--explain", "--json")
    assert json.loads(plan.stdout)["plan"].strip() == done.stdout.strip()
    run.refusal("bad.csv", "mean(x)", code=3)


@pytest.mark.parametrize(
    ("words", "said"),
    [
        (["maen(x)"], ['no function "maen"', "\n    maen(x)\n    ^^^^\n", "mean"]),
        (["mean(yy)"], ['no column "yy"', "    mean(yy)\n         ^^\n", "y", "two words"]),
        (["mean(x)", "--where", "word == abc"], ['no column "abc"', 'put it in quotes: "abc"']),
        (["mean(x"], ["never closed", "    mean(x\n        ^"]),
        (["x"], ["for each row"]),
        (["1 + 1"], ["no column"]),
        (["mean(1)"], ["constant"]),
        (["mean(x, y)"], ["1 input"]),
        (["mean(word + 1)"], ["plus", "string", "^"]),
        (
            ["mean(word)"],
            ["mean", "string", "^", "word is a column of texts", "--type 'word=double'"],
        ),
        (["sum(`two words` + word)"], ["plus", "--type 'word=double'"]),
        (
            ["sum(x > '1')"],
            ["gt is not defined for double and string", "without quotes", "--type 'x=string'"],
        ),
        (
            ["sum(x * 300)", "--type", "x=int8"],
            ["300 doesn't fit the type int8", "sum(x * 300)\n          ^\n"],
        ),
        (
            ["sum(x ^ -1)", "--type", "x=int8", "--where", "x > 9"],
            ["negative integer -1", "such as -1.0"],
        ),
        (["sum(x < 99999999999999999999)"], ["no number type holds", "write 1e+20"]),
        (
            ["sum(x == 12345678901234567)"],
            ["12345678901234567 is beyond 2^53", "1.2345678901234568e+16"],
        ),
        (["sum(two words)"], ["expected an operator", "in backquotes: `two words`"]),
        (["yy"], ['no column "yy"', "y", "`two words`"]),
        (["mean(x)", "--where", "maen(y) > 1"], ['no function "maen"']),
        (["mean(x)", "--where", "wodr"], ['no column "wodr"', "Did you mean word?"]),
        (["avg(x)"], ['no function "avg"', "Did you mean mean?"]),
        (["sum(x > 1 and y > 2)"], ["Did you mean &?"]),
        (["sum(where(x, y, 0))"], ["where is not defined for a double condition", "^^^^^"]),
        (["(" * 100_000], ["nested too deep"]),
        (["mean(x)", "mean(x)"], ["two results"]),
        (["mean(x)", "more"], ['"more" is a file', "-f"]),
        (["mean(x)", "--where", "x"], ["condition", "double"]),
        (["mean(x)", "--where", "mean(x) > 1"], ["condition on rows"]),
        (["mean(x)", "--type", "x"], ["NAME=TYPE"]),
        (["mean(x)", "--type", "x=float"], ["float", "double"]),
        (["mean(x)", "--type", "z=double"], ["z"]),
        (["mean(x)", "--nonsense"], ["--nonsense"]),
        (
            ["mean(rand(x))"],
            ["rand takes 0 inputs, got 1", "    mean(rand(x))\n         ^^^^\n"],
        ),
        (["mean(rand())", "--seed", "-1"], ["--seed", "-1"]),
        (["mean(rand())", "--seed", str(2**53)], ["--seed", str(2**53)]),
        (["-mean(x)"], ["-- '-mean(x)'"]),
        (["mean(x)", "--", "--nonsense"], ['no column "nonsense"']),
        ([], ["EXPR is required"]),
    ],
)
def test_wrong_usage_is_reported_and_ends_with_2(
    run: Run, words: list[str], said: list[str]
) -> None:
    message = run.refusal("small.csv", *words)
    for part in said:
        assert part in message
    assert len(message) < 3000


def test_a_long_expression_is_fine(run: Run) -> None:
    terms = 10_000
    assert run.results("small.csv", "r = sum(x" + "+x" * terms + ")")["r"] == 6 * (terms + 1)


@pytest.mark.parametrize(
    ("name", "content", "said"),
    [
        ("gone.csv", None, ["gone.csv"]),
        ("nothing.csv", b"", ["nothing.csv"]),
        ("ragged.csv", b"x,y\n1,2\n3\n", ["ragged.csv", "2"]),
        ("binary.csv", b"x,y\n1,\xff\xfe\n", ["binary.csv"]),
    ],
)
def test_bad_input_is_reported_and_ends_with_3(
    run: Run, name: str, content: bytes | None, said: list[str]
) -> None:
    if content is not None:
        (run.folder / name).write_bytes(content)
    message = run.refusal(name, "sum(x)", "count(y)", code=3)
    for part in said:
        assert part in message


def test_a_failure_in_evaluation_ends_with_4(run: Run) -> None:
    (run.folder / "large.csv").write_text(f"n\n{2**63 - 1}\n1\n")
    message = run.refusal("large.csv", "sum(n) + 1", "--type", "n=int64", code=4)
    assert f"sum: {2**63} doesn't fit the type int64" in message
    assert "\n    sum(n) + 1\n    ^^^\n" in message


@pytest.mark.parametrize(
    ("expression", "value"),
    [
        ("sum(n * count(n))", 300),  # a count isn't a constant
        ("max(n * 2)", 100),  # and a constant keeps the column's type
        ("max(n * (1 + 1))", 100),
        ("max(n * 2.0)", 200),
        ("sum(l)", 2),
        ("count(n) / 4", 0.5),
        ("sum(i == 12345678901234567)", 1),
        ("sum(i < 18446744073709551615)", 2),
        ("sum(u == 18446744073709551615)", 1),
        ("sum(u > -1)", 2),
        ("max(u)", 2**64 - 1),
    ],
)
def test_integers_are_exact(run: Run, expression: str, value) -> None:
    (run.folder / "types.csv").write_text(
        f"n,l,i,u\n100,true,{12345678901234567},{2**64 - 1}\n50,true,-1,0\n"
    )
    types = [
        word for pair in ("n=int8", "l=logical", "i=int64", "u=uint64") for word in ("--type", pair)
    ]
    answer = run.results("types.csv", f"r = {expression}", *types)["r"]
    assert answer == value and isinstance(answer, type(value))


def test_the_extremes_of_no_rows_are_null_and_so_is_what_is_computed_from_them(run: Run) -> None:
    (run.folder / "types.csv").write_text("n,l,t\n100,true,a\n")
    questions = ["min(l)", "!min(l)", "min(l) & true", "max(n) + 1", "max(n) == 0", "max(t)"]
    answer = run.query(
        "types.csv", *questions, "--where", "n > 101", "--type", "n=int8", "--type", "l=logical"
    )
    assert answer["results"] == dict.fromkeys(questions)


@pytest.mark.parametrize(
    "words", [["query", "small.csv", "mean(x)"], ["query", "--help"], ["version"]]
)
def test_results_that_cant_be_written_end_with_4(run: Run, words: list[str]) -> None:
    with open("/dev/full", "w") as full:
        done = subprocess.run(
            [run.tool, *words], cwd=run.folder, stdout=full, stderr=subprocess.PIPE, text=True
        )
    assert done.returncode == 4
    assert "No space left" in done.stderr


def test_a_memory_limit_holds_or_is_refused_with_what_is_needed(run: Run) -> None:
    words = ("query", "flights.csv", "mean(dep_delay)", "--json", "--memory")
    answer = json.loads(run(*words, "16MiB").stdout)
    assert answer["results"] == pytest.approx({"mean(dep_delay)": 12.639070257304708}, rel=1e-14)
    assert 0 < answer["memory_peak_bytes"] <= answer["memory_limit_bytes"] == 16 << 20
    small = run(*words, "1MB")
    assert small.returncode == 4
    assert "needs at least" in small.stderr
    assert "the limit is 1.0 MB" in small.stderr
    unknown = run(*words, "lots")
    assert unknown.returncode == 2
    assert "got lots" in unknown.stderr


def test_peak_memory_is_that_of_the_command(run: Run) -> None:
    """The memory of the process that starts the command, such as a large scheduler, must not count."""
    code = f"import os, sys; held = b'x' * 400_000_000; os.execv({str(run.tool)!r}, sys.argv[1:])"
    done = subprocess.run(
        [sys.executable, "-c", code, "kvbig", "query", "small.csv", "sum(x)", "--json"],
        cwd=run.folder,
        capture_output=True,
        text=True,
        check=True,
    )
    assert 1e6 < json.loads(done.stdout)["peak_bytes"] < 3e8


@pytest.mark.skipif(bool(os.environ.get("KV_SANITIZED")), reason="sanitizers map terabytes")
def test_a_small_address_space_ends_in_an_answer_or_an_error(run: Run) -> None:
    run("save", "kept.kv", "small.csv", "sum(x)")
    commands = [
        ["version"],
        ["describe"],
        ["query", "small.csv", "sum(x)"],
        ["open", "kept.kv"],
        ["open", "kept.kv", "--trust"],
    ]
    answers = [run(*command).returncode for command in commands]
    assert answers == [0] * len(commands)
    for megabytes in [*range(64, 112, 4), 128, 192, 256, 512, 1024, 2048]:
        limit = (megabytes * 2**20,) * 2
        for command in commands:
            done = run(*command, preexec_fn=partial(resource.setrlimit, resource.RLIMIT_AS, limit))
            if done.returncode != 0:
                assert done.returncode > 0, (megabytes, command, done.returncode)
                assert re.search(OUT_OF_MEMORY, done.stderr, re.I), (megabytes, done)
            else:
                assert done.stdout != ""


def test_an_error_that_cant_be_written_keeps_its_exit_code(run: Run) -> None:
    with open("/dev/full", "w") as full:
        done = subprocess.run(
            [run.tool, "query", "nowhere.csv", "mean(x)"], cwd=run.folder, stderr=full
        )
    assert done.returncode == 3


def test_a_reader_that_closes_the_pipe_ends_the_command_silently(run: Run) -> None:
    process = subprocess.Popen(
        [run.tool, "query", "flights.csv", "mean(dep_delay)"],
        cwd=run.folder,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
    )
    assert process.stdout and process.stderr
    process.stdout.close()
    assert process.stderr.read() == b""
    assert process.wait() == -signal.SIGPIPE


def wait_until_caught(process: subprocess.Popen[str]) -> None:
    """Returns when the process has a handler for interrupts."""
    caught = 0
    while not caught >> (signal.SIGINT - 1) & 1:
        status = Path(f"/proc/{process.pid}/status").read_text()
        caught = int(status.split("SigCgt:")[1].split()[0], 16)


def test_an_interrupt_ends_with_130_and_one_line(run: Run) -> None:
    block = "x,y\n" + "1.25,2\n" * 5_000_000
    (run.folder / "large.csv").write_text(block)
    files = [word for _ in range(40) for word in ("-f", "large.csv")]
    process = subprocess.Popen(
        [run.tool, "query", "large.csv", *files, "mean(sin(x) + cos(y))"],
        cwd=run.folder,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    )
    wait_until_caught(process)
    time.sleep(0.5)
    process.send_signal(signal.SIGINT)
    out, err = process.communicate(timeout=60)
    assert (process.returncode, out, err) == (130, "", "kvbig: interrupted\n")


@pytest.mark.parametrize("command", [["query"], ["save", "late.kv"]])
def test_an_interrupt_before_the_evaluation_counts(run: Run, command: list[str]) -> None:
    words = [*command, "small.csv", "sum(x" + "+x" * 3_000 + ")"]
    process = subprocess.Popen(
        [run.tool, *words],
        cwd=run.folder,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    )
    wait_until_caught(process)
    process.send_signal(signal.SIGINT)
    assert process.communicate(timeout=60) == ("", "kvbig: interrupted\n")
    assert not (run.folder / "late.kv").exists()


def test_explain_prints_the_plan_of_the_query(run: Run) -> None:
    words = ["small.csv", "mean(x)", "--where", "y > 4"]
    plan = run("explain", *words)
    assert (plan.returncode, plan.stderr) == (0, "")
    assert plan.stdout == run("query", *words, "--explain").stdout
    assert json.loads(run("explain", *words, "--json").stdout) == {"plan": plan.stdout}
    assert run("explain", *words, "--json", "--dot").returncode == 2


def test_explain_draws_the_lazy_graph(run: Run) -> None:
    words = ["small.csv", r"""max(where(x > 1, "a\\b", word))""", "n = sum(x)", "--dot"]
    done = run("explain", *words)
    assert (done.returncode, done.stderr) == (0, "")
    assert run("explain", *words).stdout == done.stdout
    opening, *statements, closing = done.stdout.splitlines()
    assert (opening, closing) == ("digraph {", "}")
    label = r'label="((?:[^"\\]|\\.)*)"'
    nodes, edges = {}, []
    for statement in statements:
        if node := re.fullmatch(
            rf"  (n\d+) \[(?:(shape=box|peripheries=2), )?{label}\];", statement
        ):
            nodes[node[1]] = (node[2], node[3])
        else:
            edge = re.fullmatch(r"  (n\d+) -> (n\d+);", statement)
            assert edge, statement
            edges.append(edge.groups())
    assert {end for edge in edges for end in edge} == set(nodes)
    closures = [text for shape, text in nodes.values() if shape == "shape=box"]
    assert sorted(text.split(r"\n")[0] for text in closures) == [
        *["AggregateOperation"] * 2,
        *["ElementwiseOperation"] * 2,
        "ReadOperation",
        *["SubsrefTabularVarOperation"] * 3,
    ]
    assert r"AggregateOperation\nn:5" in closures
    answers = [text for shape, text in nodes.values() if shape == "peripheries=2"]
    assert sorted(answers) == [r"future\nmax(where(x > 1, \"a\\\\b\", word))", r"future\nn"]


def test_the_examples_in_help_work(run: Run) -> None:
    text = run("query", "--help").stdout
    examples = re.findall(r"^  (kvbig .*)$", text, re.MULTILINE)
    assert len(examples) >= 5
    for example in examples:
        done = run(*shlex.split(example)[1:])
        assert (done.returncode, done.stderr) == (0, ""), example
