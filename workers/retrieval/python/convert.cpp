#include "convert.hpp"

#include <limits>

namespace retrieval::python {
namespace {

nb::object checked(PyObject* object) {
  if (object == nullptr) throw nb::python_error();
  return nb::steal(object);
}

// The integer and, in `overflow`, on which side of 64 bits it lies.
std::int64_t integer(nb::handle value, const char* name, int& overflow) {
  const nb::object exact = to_exact(value, name);
  return PyLong_AsLongLongAndOverflow(exact.ptr(), &overflow);
}

nb::object optional_text(const std::optional<std::string>& text) {
  return text ? from_text(*text) : nb::none();
}

template <typename Entries>
nb::dict from_entries(const Entries& entries) {
  nb::dict dict;
  for (const auto& [key, value] : entries) dict[from_text(key)] = nb::cast(value);
  return dict;
}

nb::dict from_statuses(const OrderedMap<std::string_view, std::string_view>& statuses) {
  nb::dict dict;
  for (const auto& [channel, status] : statuses) dict[from_text(channel)] = from_text(status);
  return dict;
}

}  // namespace

void wrong_type(const char* name, const char* expected, nb::handle value) {
  PyErr_Format(PyExc_TypeError, "%s must be %s, not %s", name, expected,
               Py_TYPE(value.ptr())->tp_name);
  throw nb::python_error();
}

std::string to_text(nb::handle value, const char* name) {
  if (!PyUnicode_Check(value.ptr())) wrong_type(name, "str", value);
  Py_ssize_t size = 0;
  if (const char* text = PyUnicode_AsUTF8AndSize(value.ptr(), &size)) {
    return {text, static_cast<std::size_t>(size)};
  }
  if (PyErr_ExceptionMatches(PyExc_UnicodeEncodeError) == 0) throw nb::python_error();
  PyErr_Clear();
  const nb::object bytes =
      checked(PyUnicode_AsEncodedString(value.ptr(), "utf-8", "surrogatepass"));
  return {PyBytes_AS_STRING(bytes.ptr()), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.ptr()))};
}

std::optional<std::string> to_optional_text(nb::handle value, const char* name) {
  if (value.is_none()) return std::nullopt;
  if (!PyUnicode_Check(value.ptr())) wrong_type(name, "str or None", value);
  return to_text(value, name);
}

nb::object from_text(std::string_view text) {
  return checked(
      PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogatepass"));
}

nb::object to_exact(nb::handle value, const char* name) {
  if (!PyIndex_Check(value.ptr())) wrong_type(name, "int", value);
  return checked(PyNumber_Index(value.ptr()));
}

std::string shown_integer(nb::handle value) {
  const nb::object digits = nb::steal(PyObject_Str(value.ptr()));
  if (digits.is_valid()) return to_text(digits, "str");
  // Python refuses to write out more than some thousand digits.
  if (PyErr_ExceptionMatches(PyExc_ValueError) == 0) throw nb::python_error();
  PyErr_Clear();
  return "an integer of " + to_text(nb::str(value.attr("bit_length")()), "bit_length") + " bits";
}

bool to_bool(nb::handle value, const char* name) {
  if (!PyBool_Check(value.ptr())) wrong_type(name, "bool", value);
  return value.ptr() == Py_True;
}

std::int64_t to_integer(nb::handle value, const char* name) {
  int overflow = 0;
  const std::int64_t number = integer(value, name, overflow);
  if (overflow != 0) {
    PyErr_Format(PyExc_OverflowError, "%s must fit in 64 bits, not %s", name,
                 shown_integer(value).c_str());
    throw nb::python_error();
  }
  return number;
}

std::int64_t to_bound(nb::handle value, const char* name) {
  int overflow = 0;
  const std::int64_t number = integer(value, name, overflow);
  if (overflow > 0) return std::numeric_limits<std::int64_t>::max();
  if (overflow < 0) return std::numeric_limits<std::int64_t>::min();
  return number;
}

RetrievalSettings to_settings(nb::handle settings) {
  const nb::object weights = settings.attr("weights");
  const nb::object files = settings.attr("file_weights");
  const auto weight = [](nb::handle record, const char* field) {
    return nb::cast<double>(record.attr(field));
  };
  const auto bound = [&](const char* field) { return to_bound(settings.attr(field), field); };
  return {.rrf_k = to_integer(settings.attr("rrf_k"), "rrf_k"),
          .depth = bound("depth"),
          .semantic_shortlist = bound("semantic_shortlist"),
          .semantic_max_neighbours = bound("semantic_max_neighbours"),
          .best_files = bound("best_files"),
          .weights = {.name = weight(weights, "name"),
                      .signature = weight(weights, "signature"),
                      .path = weight(weights, "path"),
                      .docstring = weight(weights, "docstring")},
          .file_weights = {.names = weight(files, "names"),
                           .path = weight(files, "path"),
                           .docstrings = weight(files, "docstrings")},
          .tokenizer = to_text(settings.attr("tokenizer"), "tokenizer")};
}

nb::object from_result(const RetrievalResult& result) {
  const nb::module_ records = nb::module_::import_("codeindex.workers.retrieval.records");
  const nb::object make_symbol = records.attr("RetrievedSymbol");
  const nb::object make_hit = records.attr("Hit");
  nb::list hits;
  for (const Hit& hit : result.hits) {
    const RetrievedSymbol& symbol = hit.symbol;
    hits.append(
        make_hit(make_symbol(symbol.id, from_text(symbol.fqn), from_text(symbol.name),
                             from_text(symbol.kind), from_text(symbol.path), symbol.start_line,
                             symbol.end_line, optional_text(symbol.signature)),
                 hit.score, from_entries(hit.ranks)));
  }
  return records.attr("RetrievalResult")(hits, from_statuses(result.channels),
                                         optional_text(result.note));
}

}  // namespace retrieval::python
