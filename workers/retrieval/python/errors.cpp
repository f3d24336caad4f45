#include "errors.hpp"

#include <stdexcept>
#include <string>

#include "convert.hpp"

namespace retrieval::python {
namespace {

// What the library's error types carry of a Python one.
struct Carried {
  nb::python_error error;
};

struct HostStopRequest final : StopRequest, Carried {
  explicit HostStopRequest(const nb::python_error& error) : Carried{error} {}
};

struct HostTryAgainLater final : TryAgainLaterError, Carried {
  HostTryAgainLater(const std::string& message, const nb::python_error& error)
      : TryAgainLaterError(message), Carried{error} {}
};

struct HostDecisionError final : DecisionError, Carried {
  HostDecisionError(const std::string& message, const nb::python_error& error)
      : DecisionError(message), Carried{error} {}
};

bool is_instance_of(const nb::python_error& error, const char* module, const char* type) {
  return error.matches(nb::module_::import_(module).attr(type));
}

std::string message(const nb::python_error& error) {
  return to_text(nb::str(error.value()), "str");
}

nb::object make(const nb::handle& type, const char* message) { return type(from_text(message)); }

[[noreturn]] void rethrow_with_meaning(const nb::python_error& error, Meaning meaning) {
  if (meaning == Meaning::kTryAgainLater &&
      is_instance_of(error, "codeindex.exceptions", "TryAgainLaterError")) {
    throw HostTryAgainLater(message(error), error);
  }
  if (meaning == Meaning::kDecisionError &&
      is_instance_of(error, "codeindex.engines.decision", "DecisionError")) {
    throw HostDecisionError("a decision call failed", error);
  }
  throw error;
}

}  // namespace

void rethrow_for_library(const nb::python_error& error, Meaning meaning) {
  if (!error.matches(PyExc_Exception)) throw HostStopRequest(error);
  try {
    rethrow_with_meaning(error, meaning);
  } catch (const nb::python_error& another) {
    // Asking the error for its message may itself ask to stop.
    if (!another.matches(PyExc_Exception)) throw HostStopRequest(another);
    throw;
  }
}

nb::object to_exception(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const nb::python_error& raised) {
    return nb::borrow(raised.value());
  } catch (const Carried& carried) {
    return nb::borrow(carried.error.value());
  } catch (const SqliteError& failure) {
    return make(nb::module_::import_("sqlite3").attr("OperationalError"), failure.what());
  } catch (const DivisionByZeroError& failure) {
    return make(PyExc_ZeroDivisionError, failure.what());
  } catch (const UnknownKindError& failure) {
    return make(PyExc_KeyError, failure.what());
  } catch (const std::invalid_argument& failure) {
    return make(PyExc_ValueError, failure.what());
  } catch (const std::out_of_range& failure) {
    return make(PyExc_IndexError, failure.what());
  } catch (const std::bad_alloc&) {
    return make(PyExc_MemoryError, "out of memory");
  } catch (const std::exception& failure) {
    return make(PyExc_RuntimeError, failure.what());
  }
}

void raise_current() {
  const nb::object exception = to_exception(std::current_exception());
  // Sets the error with the traceback that the exception has.
  PyErr_Restore(nb::borrow(exception.type()).release().ptr(), nb::borrow(exception).release().ptr(),
                PyException_GetTraceback(exception.ptr()));
  throw nb::python_error();
}

}  // namespace retrieval::python
