// What counts as code, and which files are tests: constants and one rule of the host.
#pragma once

#include <functional>
#include <string_view>

#include "retrieval/host/repository.hpp"

namespace retrieval {

struct CodeRules {
  StringSet source_languages;   // languages whose symbols count as code
  StringSet declaration_kinds;  // kinds of symbol that define something
  StringSet callable_kinds;     // kinds of symbol that can be called

  // Whether the file is a test file. Once per distinct path and snapshot build, while the
  // retriever's lock is held. What it throws fails the question.
  std::function<bool(std::string_view path)> is_test_path;
};

// RETRIEVABLE_KINDS of a host: the kinds of symbol that retrieval reads from the index, which are
// those that define something, and modules.
StringSet retrievable_kinds(const StringSet& declaration_kinds);

}  // namespace retrieval
