// What the Python module is made of; each part registers itself.
#pragma once

#include <nanobind/nanobind.h>

namespace retrieval::python {

void add_constants(nanobind::module_& module);
void add_functions(nanobind::module_& module);
void add_retriever(nanobind::module_& module);

}  // namespace retrieval::python
