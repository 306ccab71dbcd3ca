"""Arrays in memory and generated ones, combined row by row with NumPy's functions.

Prints:
the circle of 1,000,000 points has an area of 3.1416
"""

import kvbigdata as kv
import numpy as np

POINTS = 1_000_000

# Recorded and not computed: neither array takes memory.
angle = kv.linspace(0, 2 * np.pi, POINTS, endpoint=False)
radius = kv.ones(POINTS)

# An ndarray goes with arrays of as many rows; each of its rows is read where it is.
width = np.full(POINTS, 2 * np.pi / POINTS)
area = np.sum(radius**2 / 2 * width * (np.sin(angle) ** 2 + np.cos(angle) ** 2))

print(f"the circle of {POINTS:,} points has an area of {float(area):.4f}")
