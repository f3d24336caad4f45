"""Runs the command line: `python -m codeindex`."""

from codeindex.cli import main

main()
