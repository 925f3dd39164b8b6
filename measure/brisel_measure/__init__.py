"""Measures the plug-in's response through brisel-render and draws it.

analysis  pure functions from a response to figures
render    the response, as a user gets it
report    figures and the page of one setting, comparison of two
pictures  what the page shows
main      the command line of brisel-measure
"""
