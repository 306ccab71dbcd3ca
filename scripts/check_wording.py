#!/usr/bin/env python3
"""Refuses turns of phrase that make a reader translate, and names the plain word for each.

PHRASES is the whole list. Only turns that are wrong wherever they occur are in it, so a hit is
always worth rewording; a line that must keep one (a text fixed by an interface) goes to KEPT.
Looks at every line of text in the repository or, with arguments, in the files and folders named.
A phrase is also found across a line break of a comment.
"""

import bisect
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
SUFFIXES = {".h", ".cpp", ".py", ".pyi", ".md", ".sh", ".toml", ".txt", ".cmake", ".in", ".story"}
NAMES = {"Makefile", "run"}

# A phrase as a regular expression, and what to write. A space also matches a comment's line break.
PHRASES = (
    # people
    (r"whoever|whomever", "the caller, the code that, anyone who"),
    (r"nobody", "no one, or what doesn't happen"),
    (r"somebody", "the name of the thing"),
    # a place or a role
    (r"stands? (?:in|on|at|with|alone|there|here|where|together|next|around|above|below|under|first|last)",
     "is in, is at, follows"),
    (r"stands? (?:for|as)", "represents, means"),
    (r"(?:stands?|stood|right|directly|immediately) behind", "comes after, follows, implements"),
    (r"stood", "was"),
    (r"(?:as|where|what|when|none|which|else|still|yet) (?:it |they )?stands?", "is, are"),
    (r"behind (?:the last|the first|the second|it|them|all|each|zero|one another|its|that)", "after"),
    (r"in front of|in front", "before, at the beginning"),
    (r"cut out of", "taken from"),
    (r"parted(?: by)?|parts? them", "separated by"),
    # what code does
    (r"tells?|told", "reports, returns, names, distinguishes (told apart)"),
    (r"(?:class|code|method|function|function's|graph|handle|header|test) says?",
     "reports, returns, means"),
    (r"lets? go(?: of)?|letting go", "releases"),
    (r"g[ia]ves? up|giving up|given up", "releases, stops, ends"),
    (r"want of|for want", "out of, without"),
    (r"wants? (?:a|an|the|no|none|any|to)", "needs, requires, accepts"),
    (r"bears? (?:a|an|the|its|no)", "has"),
    (r"leans? on|lean upon", "depends on"),
    (r"answers? with", "returns"),
    (r"travels?", "is passed on"),
    # quantity
    (r"by (?:itself|themselves|himself)", "alone"),
    (r"so many|so much", "N, that number of"),
    (r"an? (?:row|file|partition|column|test|chunk|line|key|part|class|table|block|node|unit|call) an? "
     r"(?:row|file|partition|column|test|chunk|line|key|part|class|table|block|node|unit|edge|member"
     r"|operator|world|answer|kind|name|step|second|pass)", "one ... per ..."),
    (r"there (?:are|is) (?:those|one|ones) (?:that|which|who)", "some ..."),
)  # fmt: skip

# Lines that keep a phrase because their text is fixed elsewhere: a part of the line.
KEPT: tuple[str, ...] = (" Tell() const override",)  # of Arrow's files

BREAK = r"(?:\s+(?:(?:///?<?|#|\*)\s*)?)"
PATTERNS = [
    (re.compile(rf"\b(?:{phrase.replace(' ', BREAK)})\b", re.IGNORECASE), instead)
    for phrase, instead in PHRASES
]


def files(names: list[str]) -> list[Path]:
    """The repository's files of text below `names`, or all of them."""
    command = ["git", "ls-files", "-c", "-o", "--exclude-standard", "--", *names]
    listed = subprocess.run(command, cwd=ROOT, capture_output=True, text=True, check=True).stdout
    paths = [ROOT / line for line in listed.splitlines()]
    return [
        path
        for path in paths
        if (path.suffix in SUFFIXES or path.name in NAMES)
        and path.is_file()
        and path != Path(__file__).resolve()
    ]


def findings(path: Path) -> list[str]:
    """One sentence per phrase in `path`, in the order of its lines."""
    text = path.read_text(encoding="utf-8")
    starts = [0, *(m.end() for m in re.finditer("\n", text))]
    found: dict[int, str] = {}
    for pattern, instead in PATTERNS:
        for match in pattern.finditer(text):
            number = bisect.bisect_right(starts, match.start())
            line = text.splitlines()[number - 1]
            if not any(kept in line for kept in KEPT):
                phrase = re.sub(BREAK, " ", match.group())
                found[match.start()] = f"{number}: '{phrase}': write {instead}"
    return [f"{path.relative_to(ROOT)}:{found[start]}" for start in sorted(found)]


def main() -> int:
    sentences = [line for path in files(sys.argv[1:]) for line in findings(path)]
    for sentence in sentences:
        print(f"wording: {sentence}", file=sys.stderr)
    return 1 if sentences else 0


if __name__ == "__main__":
    sys.exit(main())
