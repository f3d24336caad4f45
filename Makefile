# `make ask Q="…"` answers a question, `make test` runs every test. Both set up what is missing.

PYTHON ?= python3
REPO ?= .
VENV := .venv
BIN := $(VENV)/bin
SOURCES := $(shell find workers -name '*.[ch]pp' -o -name CMakeLists.txt) CMakeLists.txt

.PHONY: ask test lint setup stubs clean
.DELETE_ON_ERROR:

setup: build/.module

# The words of the question reach the shell untouched, dollar signs and quotes included.
ask: export ASK_QUESTION = $(value Q)
ask: export ASK_REPO = $(value REPO)
ask: setup
	@test -n "$$ASK_QUESTION" || { echo 'usage: make ask Q="…" [REPO=…] [SCOPE=…] [LIMIT=…]' >&2; exit 2; }
	@$(BIN)/codeindex ask "$$ASK_QUESTION" --repo "$$ASK_REPO" \
		$(if $(SCOPE),--scope '$(SCOPE)') $(if $(LIMIT),--limit '$(LIMIT)')

test: setup lint
	$(call cpp-tests,development)
	$(call cpp-tests,address)
	$(call cpp-tests,thread)
	$(BIN)/pytest

define cpp-tests
cmake --preset $(1) >/dev/null
cmake --build --preset $(1)
ctest --preset $(1)
endef

lint: setup
	$(BIN)/ruff check
	$(BIN)/ruff format --check
	$(BIN)/mypy
	find workers examples tests -name '*.[ch]pp' | xargs $(BIN)/clang-format --dry-run -Werror

# The stub of the compiled module, to be committed with a change of what it offers.
stubs: setup
	$(BIN)/python -m nanobind.stubgen -q -P -m codeindex.workers.retrieval._native \
		-p workers/retrieval/python/stub_patterns.txt -o codeindex/workers/retrieval/_native.pyi

clean:
	rm -rf build $(VENV)

# What is set up leaves a stamp, so that a second run starts at once.

build/.packages: tools/install-debian-packages.sh
	@tools/install-debian-packages.sh $(PYTHON)
	@mkdir -p build && touch $@

build/.environment: build/.packages requirements.txt
	@echo "Setting up $(VENV)" >&2
	@$(PYTHON) -m venv $(VENV)
	@$(BIN)/pip install -q --disable-pip-version-check -r requirements.txt
	@touch $@

build/.module: build/.environment pyproject.toml $(SOURCES)
	@echo "Building the retrieval library" >&2
	@$(BIN)/pip install -q --disable-pip-version-check --no-build-isolation --no-deps -e .
	@touch $@

# What things cost, as tables; the first run fetches packages and indexes them.
.PHONY: bench
bench: setup
	@cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DRETRIEVAL_BENCHMARKS=ON >/dev/null
	@cmake --build build/release >/dev/null
	@$(BIN)/python -m benchmarks.speed build/release/benchmarks/native/text_tables_benchmark
