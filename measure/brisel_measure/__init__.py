"""Measures impulse responses, of the plug-in through brisel-render or in files, and draws them.

analysis  pure functions from a response to figures
render    the response, as a user gets it
report    figures and the page of one response, comparison of several
pictures  what the page shows
main      the command line of brisel-measure
"""
