#include "module.hpp"

NB_MODULE(_native, module) {
  module.doc() = "The retrieval library, converted to Python and nothing more.";
  // A retriever that lives as long as the process is no leak worth a message.
  nanobind::set_leak_warnings(false);
  retrieval::python::add_constants(module);
  retrieval::python::add_functions(module);
  retrieval::python::add_retriever(module);
}
