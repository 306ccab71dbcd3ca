"""Questions about one table, answered in one pass over its file.

Prints:
late by more than an hour: 8.3%, of JFK 8.0%
EWR: 120,835 flights, 15.1 minutes late on average
JFK: 111,279 flights, 12.1 minutes late on average
LGA: 104,662 flights, 10.3 minutes late on average
"""

from pathlib import Path

import kvbigdata as kv

FLIGHTS = Path(__file__).parent.parent / "data" / "flights.csv"

flights = kv.read(FLIGHTS)
is_late = flights.arr_delay > 60
from_jfk = flights.filter("origin == 'JFK'")

answers = kv.compute({"all": is_late.mean(), "JFK": (from_jfk.arr_delay > 60).mean()})
print(f"late by more than an hour: {answers['all']:.1%}, of JFK {answers['JFK']:.1%}")
assert kv.facts().passes == 1

by_airport = flights.group_by("origin").agg(n="count", delay=("dep_delay", "mean"))
for row in by_airport.compute().to_pylist():
    print(f"{row['origin']}: {row['n']:,} flights, {row['delay']:.1f} minutes late on average")
