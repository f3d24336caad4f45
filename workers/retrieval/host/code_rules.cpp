#include "retrieval/host/code_rules.hpp"

namespace retrieval {

StringSet retrievable_kinds(const StringSet& declaration_kinds) {
  StringSet kinds = declaration_kinds;
  kinds.emplace("module");
  return kinds;
}

}  // namespace retrieval
