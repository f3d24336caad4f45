// Texts kept once each, for the life of a snapshot.
//
// A pool is filled by one thread; afterwards any number may read it. Views into it stay valid until
// it goes, wherever it is moved.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace retrieval {

// Memory for texts, in large blocks; nothing is freed before the whole.
class TextArena {
 public:
  // A copy of the text that stays where it is.
  std::string_view keep(std::string_view text);

 private:
  std::vector<std::unique_ptr<char[]>> blocks_;
  char* free_ = nullptr;
  std::size_t left_ = 0;
};

class StringPool {
 public:
  // A text's number in the pool.
  using Ref = std::uint32_t;

  // The number of the text, which is added when it is new.
  Ref add(std::string_view text);

  std::string_view operator[](Ref ref) const { return texts_[ref]; }

  // Ends the filling: drops what only `add` needs.
  void close();

 private:
  TextArena arena_;
  std::vector<std::string_view> texts_;
  std::unordered_map<std::string_view, Ref> refs_;
};

}  // namespace retrieval
