"""Ask a repository from Python: `python examples/ask_a_repository.py PATH QUESTION [SCOPE]`."""

import sys

import codeindex

with codeindex.open(sys.argv[1]) as index:
    answer = index.ask(sys.argv[2], scope=sys.argv[3] if len(sys.argv) > 3 else None, limit=3)
    for hit in answer:
        print(f"{hit.symbol.fqn}  {hit.symbol.path}:{hit.symbol.start_line}  {hit.ranks}")
    print(answer.note or "Every channel ranked.")
