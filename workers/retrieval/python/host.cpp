#include "host.hpp"

#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "convert.hpp"
#include "errors.hpp"

namespace retrieval::python {

using namespace nb::literals;

// A fingerprint, registered with its retriever's objects for the garbage collector.
class PythonFingerprint final : public IndexFingerprint {
 public:
  PythonFingerprint(std::shared_ptr<HostObjects> objects, nb::object value)
      : objects_(std::move(objects)), value_(std::move(value)) {
    objects_->fingerprints.insert(this);
  }

  ~PythonFingerprint() override {
    const nb::gil_scoped_acquire gil;
    objects_->fingerprints.erase(this);
    value_.reset();
  }

  PythonFingerprint(const PythonFingerprint&) = delete;
  PythonFingerprint& operator=(const PythonFingerprint&) = delete;

  bool differs_from(const IndexFingerprint& other) const override {
    return with_host([&] {
      const nb::object& theirs = static_cast<const PythonFingerprint&>(other).value_;
      const nb::object differs = nb::steal(PyObject_RichCompare(value_.ptr(), theirs.ptr(), Py_NE));
      const int truth = differs.is_valid() ? PyObject_IsTrue(differs.ptr()) : -1;
      if (truth < 0) throw nb::python_error();
      return truth == 1;
    });
  }

  // Visited and cleared by the garbage collector, through the retriever's objects.
  nb::object& value() { return value_; }

 private:
  std::shared_ptr<HostObjects> objects_;
  nb::object value_;
};

namespace {

thread_local nb::handle asked_limit;

// Attribute names of a stored symbol, made once for the life of the process.
struct FieldNames {
  nb::object id, fqn, name, kind, path, start_line, end_line, signature, docstring;
};

const FieldNames& field_names() {
  const auto interned = [](const char* name) {
    return nb::steal(PyUnicode_InternFromString(name));
  };
  static const FieldNames& names =
      *new FieldNames{interned("id"),       interned("fqn"),       interned("name"),
                      interned("kind"),     interned("path"),      interned("start_line"),
                      interned("end_line"), interned("signature"), interned("docstring")};
  return names;
}

nb::object attribute(nb::handle object, const nb::object& name) {
  nb::object value = nb::steal(PyObject_GetAttr(object.ptr(), name.ptr()));
  if (!value.is_valid()) throw nb::python_error();
  return value;
}

nb::object host_item(const char* module, const char* name) {
  return nb::module_::import_(module).attr(name);
}

nb::object decision_item(const char* name) { return host_item("codeindex.engines.decision", name); }

nb::object decision_text_item(const char* name) {
  return host_item("codeindex.engines.decision_text", name);
}

// A truth value as Python's own conditions take it.
bool is_true(const nb::object& value) {
  const int truth = PyObject_IsTrue(value.ptr());
  if (truth < 0) throw nb::python_error();
  return truth == 1;
}

// A Python object as a value that the library passes on and drops on whatever thread.
HostValue keep(nb::object value) {
  return {value.release().ptr(), [](const void* object) {
            const nb::gil_scoped_acquire gil;
            Py_DECREF(static_cast<PyObject*>(const_cast<void*>(object)));
          }};
}

nb::object kept(const HostValue& value) {
  return nb::borrow(static_cast<PyObject*>(const_cast<void*>(value.get())));
}

nb::object optional_text(std::optional<std::string_view> text) {
  return text ? from_text(*text) : nb::none();
}

class PythonListing final : public SymbolListing {
 public:
  // The GIL is held.
  explicit PythonListing(const nb::object& symbols) : symbols_(nb::iter(symbols)) {}

  ~PythonListing() override {
    const nb::gil_scoped_acquire gil;
    symbols_.reset();
  }

  PythonListing(const PythonListing&) = delete;
  PythonListing& operator=(const PythonListing&) = delete;

  std::optional<StoredSymbol> next() override {
    return with_host([&]() -> std::optional<StoredSymbol> {
      const nb::object symbol = nb::steal(PyIter_Next(symbols_.ptr()));
      if (symbol.is_valid()) return stored(symbol);
      if (PyErr_Occurred() != nullptr) throw nb::python_error();
      return std::nullopt;
    });
  }

  HostValue hold() override { return std::make_shared<nb::gil_scoped_acquire>(); }

 private:
  static StoredSymbol stored(const nb::object& symbol) {
    const FieldNames& names = field_names();
    const auto text = [&](const nb::object& name, const char* what) {
      return to_text(attribute(symbol, name), what);
    };
    const auto integer = [&](const nb::object& name, const char* what) {
      return to_integer(attribute(symbol, name), what);
    };
    const auto optional = [&](const nb::object& name, const char* what) {
      return to_optional_text(attribute(symbol, name), what);
    };
    return {.id = integer(names.id, "id of a stored symbol"),
            .fqn = text(names.fqn, "fqn of a stored symbol"),
            .name = text(names.name, "name of a stored symbol"),
            .kind = text(names.kind, "kind of a stored symbol"),
            .path = text(names.path, "path of a stored symbol"),
            .start_line = integer(names.start_line, "start_line of a stored symbol"),
            .end_line = integer(names.end_line, "end_line of a stored symbol"),
            .signature = optional(names.signature, "signature of a stored symbol"),
            .docstring = optional(names.docstring, "docstring of a stored symbol")};
  }

  nb::object symbols_;
};

class PythonRepository final : public Repository {
 public:
  explicit PythonRepository(std::shared_ptr<HostObjects> objects) : objects_(std::move(objects)) {}

  std::shared_ptr<const IndexFingerprint> retrieval_fingerprint() override {
    return with_host([&] {
      return std::make_shared<PythonFingerprint>(
          objects_, objects_->repository.attr("retrieval_fingerprint")());
    });
  }

  std::unique_ptr<SymbolListing> retrievable_code_symbols(const StringSet& /*languages*/,
                                                          const StringSet& /*kinds*/) override {
    // The host gets its own sets back.
    return with_host([&]() -> std::unique_ptr<SymbolListing> {
      return std::make_unique<PythonListing>(objects_->repository.attr("retrievable_code_symbols")(
          host_item("codeindex.utils.language_filter", "SOURCE_LANGUAGES"),
          host_item("codeindex.workers.retrieval.kinds", "RETRIEVABLE_KINDS")));
    });
  }

  std::vector<SymbolId> nearest_symbol_ids(const QueryVector& vector, std::int64_t top_k) override {
    return with_host([&] {
      const nb::object query = kept(vector.origin);
      const nb::object nearest = objects_->repository.attr("nearest_symbol_ids")(
          query.attr("values"), query.attr("model"), "top_k"_a = exact_top_k(top_k));
      // A copy of our own: Python code that runs meanwhile may change the host's list.
      const nb::object entries = nb::steal(PySequence_Tuple(nearest.ptr()));
      if (!entries.is_valid()) throw nb::python_error();
      std::vector<SymbolId> ids;
      for (const nb::handle entry : entries) {
        const nb::object id = nb::steal(PySequence_GetItem(entry.ptr(), 0));
        if (!id.is_valid()) throw nb::python_error();
        ids.push_back(to_integer(id, "a symbol id of nearest_symbol_ids"));
      }
      return ids;
    });
  }

  std::unordered_map<SymbolId, std::optional<std::string>> get_symbols_by_ids(
      std::span<const SymbolId> ids) override {
    return with_host(
        [&] {
          nb::list asked;
          for (const SymbolId id : ids) asked.append(id);
          const nb::object found = objects_->repository.attr("get_symbols_by_ids")(asked);
          std::unordered_map<SymbolId, std::optional<std::string>> docstrings;
          for (const SymbolId id : ids) {
            const nb::object symbol = found.attr("get")(id);
            if (symbol.is_none()) continue;
            docstrings[id] = to_optional_text(attribute(symbol, field_names().docstring),
                                              "docstring of a stored symbol");
          }
          return docstrings;
        },
        Meaning::kDecisionError);
  }

 private:
  // The number of neighbours that was asked. What does not fit in 64 bits is the largest of the
  // integers that the first pass is made of, since no later pass comes after so many neighbours.
  nb::object exact_top_k(std::int64_t top_k) const {
    if (top_k != std::numeric_limits<std::int64_t>::max()) return nb::int_(top_k);
    const nb::object limit =
        asked_limit.is_valid() ? nb::borrow(asked_limit) : nb::object(nb::int_(top_k));
    return nb::module_::import_("builtins")
        .attr("max")(objects_->settings.attr("semantic_shortlist"),
                     objects_->settings.attr("depth"), limit);
  }

  std::shared_ptr<HostObjects> objects_;
};

class PythonDecisions final : public RerankClient {
 public:
  explicit PythonDecisions(std::shared_ptr<HostObjects> objects) : objects_(std::move(objects)) {}

  bool feature_enabled(std::string_view name) override {
    return with_host(
        [&] { return is_true(objects_->decisions.attr("feature_enabled")(from_text(name))); });
  }

  HostValue decide(const DecisionRequest& request, std::string_view question_version) override {
    return with_host(
        [&] {
          return keep(objects_->decisions.attr("decide")(
              kept(request.state), kept(request.questions),
              "question_version"_a = from_text(question_version)));
        },
        Meaning::kDecisionError);
  }

 private:
  std::shared_ptr<HostObjects> objects_;
};

class PythonDecisionSupport final : public DecisionSupport {
 public:
  explicit PythonDecisionSupport(std::shared_ptr<HostObjects> objects)
      : objects_(std::move(objects)) {}

  std::string rerank_question_version() override {
    return with_host([] {
      return to_text(decision_item("RERANK_QUESTION_VERSION"), "RERANK_QUESTION_VERSION");
    });
  }

  HostValue source_consented(RerankClient& /*client*/) override {
    return with_host(
        [&] { return keep(decision_text_item("source_consented")(objects_->decisions)); },
        Meaning::kDecisionError);
  }

  std::string candidate_line(const Candidate& candidate, const HostValue& consent) override {
    return with_host(
        [&] {
          return to_text(decision_text_item("candidate_line")(
                             from_text(candidate.fqn), from_text(candidate.kind),
                             optional_text(candidate.docstring), optional_text(candidate.signature),
                             consent == nullptr ? nb::object(nb::bool_(false)) : kept(consent),
                             "path"_a = from_text(candidate.path)),
                         "the result of candidate_line");
        },
        Meaning::kDecisionError);
  }

  DecisionRequest rerank_request(std::string_view query,
                                 const std::vector<std::string>& lines) override {
    return with_host(
        [&] {
          nb::list shown;
          for (const std::string& line : lines) shown.append(from_text(line));
          const nb::object request = decision_item("rerank_request")(from_text(query), shown);
          const nb::object pair = nb::steal(PySequence_Tuple(request.ptr()));
          if (!pair.is_valid()) throw nb::python_error();
          if (nb::len(pair) != 2) {
            PyErr_SetString(PyExc_ValueError, "rerank_request must return (state, questions)");
            throw nb::python_error();
          }
          return DecisionRequest{keep(pair[0]), keep(pair[1])};
        },
        Meaning::kDecisionError);
  }

  std::vector<std::int64_t> rerank_order(const HostValue& answer, std::size_t count) override {
    return with_host(
        [&] {
          const nb::object order = decision_item("rerank_order")(kept(answer), count);
          std::vector<std::int64_t> positions;
          for (const nb::handle position : order) {
            positions.push_back(to_bound(position, "a position of rerank_order"));
          }
          return positions;
        },
        Meaning::kDecisionError);
  }

 private:
  std::shared_ptr<HostObjects> objects_;
};

struct FromArgument {
  nb::object operator()(std::int64_t number) const { return nb::int_(number); }
  nb::object operator()(double number) const { return nb::float_(number); }
  nb::object operator()(const std::string& text) const { return from_text(text); }
  nb::object operator()(const std::exception_ptr& error) const { return to_exception(error); }
};

// Hands the lines to the logger that is named after the module.
class PythonLog final : public Log {
 public:
  void write(const LogRecord& record) override {
    with_host([&] {
      const nb::object logger =
          nb::module_::import_("logging").attr("getLogger")("codeindex.workers.retrieval");
      nb::list arguments;
      arguments.append(from_text(record.format));
      for (const LogArgument& argument : record.arguments) {
        arguments.append(std::visit(FromArgument{}, argument));
      }
      nb::dict named;
      if (record.error) named["exc_info"] = to_exception(record.error);
      logger.attr(record.level == LogLevel::kDebug ? "debug" : "warning")(*arguments, **named);
    });
  }
};

StringSet to_set(const nb::object& texts) {
  StringSet set;
  for (const nb::handle text : texts) set.insert(to_text(text, "a kind of symbol"));
  return set;
}

}  // namespace

int HostObjects::traverse(visitproc visit, void* arg) const {
  for (const nb::object* object : {&repository, &embedder, &decisions, &settings}) {
    Py_VISIT(object->ptr());
  }
  for (PythonFingerprint* fingerprint : fingerprints) Py_VISIT(fingerprint->value().ptr());
  return 0;
}

void HostObjects::clear() {
  for (nb::object* object : {&repository, &embedder, &decisions, &settings}) *object = nb::none();
  for (PythonFingerprint* fingerprint : fingerprints) fingerprint->value() = nb::none();
}

AskedLimit::AskedLimit(nb::handle limit) : outer_(std::exchange(asked_limit, limit)) {}
AskedLimit::~AskedLimit() { asked_limit = outer_; }

std::shared_ptr<Repository> make_repository(std::shared_ptr<HostObjects> objects) {
  return std::make_shared<PythonRepository>(std::move(objects));
}

QueryEmbedder make_embedder(std::shared_ptr<HostObjects> objects) {
  if (objects->embedder.is_none()) return {};
  return [objects = std::move(objects)](std::string_view text) {
    return with_host(
        [&] {
          nb::object vector = objects->embedder(from_text(text));
          std::string model = to_text(vector.attr("model"), "model of a QueryVector");
          return QueryVector{{}, std::move(model), keep(std::move(vector))};
        },
        Meaning::kTryAgainLater);
  };
}

std::shared_ptr<RerankClient> make_decisions(std::shared_ptr<HostObjects> objects) {
  if (objects->decisions.is_none()) return nullptr;
  return std::make_shared<PythonDecisions>(std::move(objects));
}

Host make_host(std::shared_ptr<HostObjects> objects) {
  const nb::module_ kinds = nb::module_::import_("codeindex.workers.retrieval.kinds");
  const auto is_test_path = [](std::string_view path) {
    return with_host([&] {
      return is_true(host_item("codeindex.utils.path_filter", "is_test_path")(from_text(path)));
    });
  };
  return {.rules = {.source_languages = {},
                    .declaration_kinds = to_set(kinds.attr("RETRIEVABLE_KINDS")),
                    .callable_kinds = to_set(kinds.attr("CALLABLE_KINDS")),
                    .is_test_path = is_test_path},
          .log = std::make_shared<PythonLog>(),
          .decision_support = std::make_shared<PythonDecisionSupport>(std::move(objects))};
}

}  // namespace retrieval::python
