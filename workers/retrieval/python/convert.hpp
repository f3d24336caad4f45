// Conversions between Python values and the library's.
//
// Everything here runs with the GIL held. A value of the wrong type is a TypeError, one that does
// not fit an OverflowError, and both name the argument or field.
#pragma once

#include <nanobind/nanobind.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "retrieval/retrieval.hpp"

namespace retrieval::python {

namespace nb = nanobind;

// Raises the TypeError: "<name> must be <expected>, not <the value's type>".
[[noreturn]] void wrong_type(const char* name, const char* expected, nb::handle value);

// Python texts may hold NULs and lone surrogates; inside they are UTF-8, with a lone surrogate as
// the three bytes that its code point would take.
std::string to_text(nb::handle value, const char* name);
std::optional<std::string> to_optional_text(nb::handle value, const char* name);
nb::object from_text(std::string_view text);

bool to_bool(nb::handle value, const char* name);

// The int that the value is or stands for.
nb::object to_exact(nb::handle value, const char* name);

// An integer as a message shows it, whatever its size.
std::string shown_integer(nb::handle value);

// An exact 64-bit integer.
std::int64_t to_integer(nb::handle value, const char* name);

// An integer that only ever bounds a count: beyond 64 bits the nearest 64-bit one serves as well.
std::int64_t to_bound(nb::handle value, const char* name);

RetrievalSettings to_settings(nb::handle settings);

nb::object from_result(const RetrievalResult& result);

}  // namespace retrieval::python
