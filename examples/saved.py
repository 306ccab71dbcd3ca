"""A question that is saved, and answered in another session or on another day.

Prints:
['late', 'worst']
late 8.3%, worst delay 1301 minutes
"""

import tempfile
from pathlib import Path

import kvbigdata as kv

FLIGHTS = Path(__file__).parent.parent / "data" / "flights.csv"

with tempfile.TemporaryDirectory() as folder:
    path = Path(folder, "questions.kv")
    with kv.session():
        flights = kv.read(FLIGHTS)
        # The file contains what was recorded, but no rows.
        kv.save(path, late=(flights.arr_delay > 60).mean(), worst=flights.dep_delay.max())

    # Without trust, a file can be looked at and changed, but nothing in it is computed.
    print(list(kv.open(path)))

    answers = kv.compute(kv.open(path, trust=True))
    print(f"late {answers['late']:.1%}, worst delay {answers['worst']:.0f} minutes")
