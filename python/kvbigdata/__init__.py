"""Arrays and tables larger than memory, used as if they were not.

``kvbigdata.host`` is the embedded host itself: calls by name, objects, functions and classes.
"""
