"""Reads wrapped apps and their signatures without any of the code that made them.

Only Python's standard library and stock programs (openssl) are used, so that a mistake in our own
readers cannot hide the same mistake in our writers.
"""
