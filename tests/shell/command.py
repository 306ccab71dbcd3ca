"""The command kvbig, as the tests run it."""

import json
import subprocess
from pathlib import Path


class Run:
    """The command, run in a folder."""

    def __init__(self, tool: Path, folder: Path):
        self.tool = tool
        self.folder = folder

    def __call__(self, *words: str, **options) -> subprocess.CompletedProcess:
        return subprocess.run(
            [self.tool, *words],
            cwd=self.folder,
            capture_output=True,
            text=True,
            timeout=300,
            **options,
        )

    def query(self, *words: str) -> dict:
        """The JSON result of a query that must succeed."""
        done = self("query", "--json", *words)
        assert (done.returncode, done.stderr) == (0, ""), done.stderr
        return json.loads(done.stdout)

    def results(self, *words: str) -> dict:
        """The answers alone of a query that must succeed."""
        return self.query(*words)["results"]

    def refusal(self, *words: str, code: int = 2) -> str:
        """The text on stderr when a query fails with `code`; stdout must be empty."""
        done = self("query", *words)
        assert (done.returncode, done.stdout) == (code, ""), done.stderr
        assert done.stderr.startswith("kvbig: ")
        return done.stderr
