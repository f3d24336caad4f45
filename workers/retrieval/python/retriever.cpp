#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "convert.hpp"
#include "errors.hpp"
#include "host.hpp"
#include "module.hpp"

namespace retrieval::python {
namespace {

// Counts the questions in progress, so that the interpreter does not go while one of them is about
// to come back to it. Read and written with the GIL held.
class Inside {
 public:
  Inside() {
    if (closed_) {
      PyErr_SetString(PyExc_RuntimeError, "no question can be asked while Python shuts down");
      throw nb::python_error();
    }
    ++count_;
  }
  ~Inside() { --count_; }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

  // Refuses further questions and waits, for a while, until those in progress have ended.
  static void close() {
    using namespace std::chrono_literals;
    closed_ = true;
    const auto patience = std::chrono::steady_clock::now() + 10s;
    while (count_ > 0 && std::chrono::steady_clock::now() < patience) {
      const nb::gil_scoped_release free;
      std::this_thread::sleep_for(1ms);
    }
  }

 private:
  static inline bool closed_ = false;
  static inline int count_ = 0;
};

// The C++ retriever beside the Python objects that it uses.
class PythonRetriever {
 public:
  PythonRetriever(nb::object repository, nb::object embedder, nb::object settings,
                  nb::object decisions)
      : objects_(std::make_shared<HostObjects>()) {
    const nb::object type =
        nb::module_::import_("codeindex.workers.retrieval.records").attr("RetrievalSettings");
    if (settings.is_none()) settings = type();
    if (!nb::isinstance(settings, type))
      wrong_type("settings", "RetrievalSettings or None", settings);
    if (!embedder.is_none() && PyCallable_Check(embedder.ptr()) == 0) {
      wrong_type("embedder", "callable or None", embedder);
    }
    *objects_ = {
        std::move(repository), std::move(embedder), std::move(decisions), std::move(settings), {}};
    retriever_ = std::make_unique<HybridRetriever>(
        make_repository(objects_), make_host(objects_), make_embedder(objects_),
        to_settings(objects_->settings), make_decisions(objects_));
  }

  nb::object retrieve(const nb::object& query, const nb::object& limit, const nb::object& scope,
                      const nb::object& include_tests, const nb::object& rerank) {
    const std::string text = to_text(query, "query");
    const std::optional<std::string> scope_text = to_optional_text(scope, "scope");
    const nb::object exact_limit = to_exact(limit, "limit");
    Question question{.limit = to_bound(exact_limit, "limit"),
                      .scope = scope_text,
                      .include_tests = std::nullopt,
                      .rerank = to_bool(rerank, "rerank")};
    if (!include_tests.is_none()) question.include_tests = to_bool(include_tests, "include_tests");
    if (question.limit < 1) {
      PyErr_Format(PyExc_ValueError, "limit must be at least 1, not %s",
                   shown_integer(exact_limit).c_str());
      throw nb::python_error();
    }
    const AskedLimit asked(exact_limit);
    const Inside inside;
    try {
      RetrievalResult result;
      {
        const nb::gil_scoped_release free;
        result = retriever_->retrieve(text, question);
      }
      return from_result(result);
    } catch (...) {
      raise_current();
    }
  }

  HostObjects& objects() { return *objects_; }

 private:
  std::shared_ptr<HostObjects> objects_;
  std::unique_ptr<HybridRetriever> retriever_;
};

int traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(Py_TYPE(self));
  if (!nb::inst_ready(self)) return 0;
  return nb::inst_ptr<PythonRetriever>(self)->objects().traverse(visit, arg);
}

int clear(PyObject* self) {
  if (nb::inst_ready(self)) nb::inst_ptr<PythonRetriever>(self)->objects().clear();
  return 0;
}

PyType_Slot collected[] = {{Py_tp_traverse, reinterpret_cast<void*>(traverse)},
                           {Py_tp_clear, reinterpret_cast<void*>(clear)},
                           {0, nullptr}};

}  // namespace

void add_retriever(nb::module_& module) {
  nb::module_::import_("atexit").attr("register")(nb::cpp_function(&Inside::close));
  nb::class_<PythonRetriever>(
      module, "HybridRetriever", nb::type_slots(collected), nb::is_weak_referenceable(),
      "Answers questions about one repository's index.\n\n"
      "Any number of threads may ask one retriever at the same time. It holds its collaborators\n"
      "for its whole life and closes none of them; constructing it touches none of them either.")
      .def(nb::init<nb::object, nb::object, nb::object, nb::object>(), nb::arg("repository"),
           nb::kw_only(), nb::arg("embedder") = nb::none(), nb::arg("settings") = nb::none(),
           nb::arg("decisions") = nb::none(),
           nb::sig("def __init__(self, repository: codeindex.workers.retrieval.host.Repository, *, "
                   "embedder: codeindex.workers.retrieval.host.QueryEmbedder | None = None, "
                   "settings: codeindex.workers.retrieval.records.RetrievalSettings | None = None, "
                   "decisions: codeindex.workers.retrieval.host.RerankClient | None = None) "
                   "-> None"))
      .def("retrieve", &PythonRetriever::retrieve, nb::arg("query").none(), nb::kw_only(),
           nb::arg("limit").none() = 10, nb::arg("scope") = nb::none(),
           nb::arg("include_tests") = nb::none(), nb::arg("rerank").none() = false,
           nb::sig("def retrieve(self, query: str, *, limit: int = 10, scope: str | None = None, "
                   "include_tests: bool | None = None, rerank: bool = False) "
                   "-> codeindex.workers.retrieval.records.RetrievalResult"),
           "The symbols that best answer the question, best first, with what each channel did.\n\n"
           "`limit` is how many hits to return at most; `scope` a file or folder relative to the\n"
           "repository root (None, \"\" or \".\" for all of it); `include_tests` whether symbols "
           "in\n"
           "test files may answer (None: when the question is about tests); `rerank` asks the\n"
           "decision model to reorder the first hits.\n\n"
           "Blocks: it reads the index and may embed the query, with the GIL released in between.\n"
           "Raises ValueError for a limit below 1. Failures of the index and of SQLite\n"
           "(sqlite3.OperationalError) pass through; those of the embedder and of the decision\n"
           "model become a status or a note.");
}

}  // namespace retrieval::python
