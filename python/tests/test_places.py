"""Errors show the user's line wherever that is written: also in exec, threads, async and notebooks."""

import asyncio
import contextvars
import functools
import threading

import kvbigdata as kv
import nbclient
import nbformat
import pytest

pytestmark = pytest.mark.usefixtures("arrays")


def wrong_column():
    t = kv.table({"a": [1]})
    return t.nope  # the line


LINE = wrong_column.__code__.co_firstlineno + 2


def decorated(function):
    @functools.wraps(function)
    def call(*args):
        return function(*args)

    return call


def in_a_thread(function):
    raised = []

    def run():
        try:
            function()
        except kv.Error as error:
            raised.append(error)

    thread = threading.Thread(target=contextvars.copy_context().run, args=[run])
    thread.start()
    thread.join()
    raise raised[0]


def in_async(function):
    async def call():
        await asyncio.sleep(0)
        return await asyncio.to_thread(function)

    return asyncio.run(call())


@pytest.mark.parametrize(
    "call", [lambda f: f(), lambda f: decorated(f)(), in_a_thread, in_async]
)  # fmt: skip
def test_the_line_is_the_users(call):
    with pytest.raises(kv.Error) as caught:
        call(wrong_column)
    assert caught.value.where == (__file__, LINE, "return t.nope  # the line")


def test_code_without_a_file_has_its_name_and_line():
    code = compile("import kvbigdata as kv\n\nkv.table({'a': [1]}).nope", "<formula 1>", "exec")
    with pytest.raises(kv.Error) as caught:
        exec(code, {})
    assert caught.value.where[:2] == ("<formula 1>", 3)


CELLS = [
    "import kvbigdata as kv, numpy as np, time\nt = kv.table({'a': [1, 2]})",
    "t",
    "try:\n    t.nope\nexcept kv.Error as error:\n    print(error.where.line, error.where.text)",
    """def fails(values):
    raise ValueError("no")

wrong = t.a.map_chunks(fails)""",
    "try:\n    wrong.compute()\nexcept ValueError as error:\n    print(error.__notes__)",
    """x = kv.from_numpy(np.arange(8), chunk_rows=1)
with kv.options(threads=1):
    x.map_chunks(lambda values: time.sleep(0.15) or values).max().compute()""",
    "from_async = await __import__('asyncio').to_thread((t.a + 1).compute)\nfrom_async.tolist()",
]


def outputs_of(cell):
    shown = {"text": "", "html": ""}
    for output in cell.outputs:
        data = output.get("data", {})
        shown["text"] += output.get("text", "") + data.get("text/plain", "")
        shown["html"] += data.get("text/html", "")
    return shown


def test_a_notebook_shows_lines_tables_and_progress(tmp_path, monkeypatch):
    for name in ("JUPYTER_RUNTIME_DIR", "JUPYTER_CONFIG_DIR", "IPYTHONDIR"):
        monkeypatch.setenv(name, str(tmp_path / name))
    monkeypatch.delenv("KV_PROGRESS", raising=False)
    book = nbformat.v4.new_notebook(cells=[nbformat.v4.new_code_cell(cell) for cell in CELLS])
    nbclient.NotebookClient(book, timeout=120, kernel_name="python3").execute()
    _, table, line, _, notes, progress, awaited = map(outputs_of, book.cells)
    assert "<th>a</th>" in table["html"] and "<kv.Table of 1 column" in table["text"]
    assert line["text"] == "2 t.nope\n"
    assert (
        "line 4: wrong = t.a.map_chunks(fails)" in notes["text"] and "rows 1 to 2" in notes["text"]
    )
    assert "of 8 partitions" in progress["text"]
    assert awaited["text"] == "[2, 3]"
