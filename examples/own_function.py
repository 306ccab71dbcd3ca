"""Functions of your own, called chunk by chunk on several threads.

Prints:
longest flight: 8019 km
greatest mean speed: 1132 km/h; 33,428 flights to the west coast
"""

from pathlib import Path
from typing import Any

import kvbigdata as kv
import numpy as np
import numpy.typing as npt
import pyarrow as pa
import pyarrow.compute as pc

FLIGHTS = Path(__file__).parent.parent / "data" / "flights.csv"


def kilometres(miles: npt.NDArray[np.float64]) -> npt.NDArray[np.float64]:
    """Is given the rows of a chunk, and returns as many."""
    return miles * 1.609344


def to_the_west(batch: pa.RecordBatch) -> Any:
    """Is given all columns of a chunk, and returns any number of rows."""
    return batch.filter(pc.field("dest").isin(["LAX", "SFO", "SEA"]))


flights = kv.read(FLIGHTS, columns=["dest", "distance", "air_time"])
distance = flights.distance.map_chunks(kilometres)
speed = distance / flights.air_time * 60
west = flights.map_chunks(to_the_west, rows="any")

longest, fastest, count = kv.compute(distance.max(), speed.max(), west.dest.count_rows())
print(f"longest flight: {longest:.0f} km")
print(f"greatest mean speed: {fastest:.0f} km/h; {count:,} flights to the west coast")
