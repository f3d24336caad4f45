// The way of errors between Python and the library.
//
// An exception that a host object raises travels through the library inside a C++ exception and
// comes out, at the caller or in the log, as the same object with its traceback. What the library
// throws itself becomes the Python error of its kind.
#pragma once

#include <nanobind/nanobind.h>

#include <exception>
#include <utility>

namespace retrieval::python {

namespace nb = nanobind;

// Which errors of a host call mean something to the library, beside those that ask the process to
// stop.
enum class Meaning { kNone, kTryAgainLater, kDecisionError };

// Rethrows a Python error as the library's error of the same meaning. The GIL is held.
[[noreturn]] void rethrow_for_library(const nb::python_error& error, Meaning meaning);

// Runs code that calls the host: takes the GIL for it and gives errors their meaning.
template <typename Call>
auto with_host(Call&& call, Meaning meaning = Meaning::kNone) {
  const nb::gil_scoped_acquire gil;
  try {
    return std::forward<Call>(call)();
  } catch (const nb::python_error& error) {
    rethrow_for_library(error, meaning);
  }
}

// The Python exception of an error that left the library. The GIL is held.
nb::object to_exception(const std::exception_ptr& error);

// Raises the error in flight in Python. The GIL is held.
[[noreturn]] void raise_current();

}  // namespace retrieval::python
