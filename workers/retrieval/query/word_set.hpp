// A fixed set of short lower-case words, laid out at compile time.
//
// Membership is one hash and, as a rule, one comparison: indexing asks it for every word of every
// symbol. The words keep the order in which they were written. Immutable; any thread may ask.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace retrieval {

template <std::size_t Size>
class WordSet {
 public:
  consteval explicit WordSet(const std::array<std::string_view, Size>& words) : words_(words) {
    for (std::size_t i = 0; i < Size; ++i) {
      std::size_t slot = hash(words_[i]);
      while (slots_[slot] != 0) slot = (slot + 1) % kSlots;
      slots_[slot] = static_cast<std::uint16_t>(i + 1);
      if (words_[i].size() > longest_) longest_ = words_[i].size();
    }
  }

  constexpr bool contains(std::string_view word) const noexcept {
    if (word.size() > longest_) return false;
    for (std::size_t slot = hash(word); slots_[slot] != 0; slot = (slot + 1) % kSlots) {
      if (words_[slots_[slot] - 1] == word) return true;
    }
    return false;
  }

  constexpr std::size_t size() const noexcept { return Size; }
  constexpr auto begin() const noexcept { return words_.begin(); }
  constexpr auto end() const noexcept { return words_.end(); }

 private:
  // A quarter full at most, so that probing ends at once.
  static constexpr std::size_t kSlots = [] {
    std::size_t slots = 1;
    while (slots < 4 * Size) slots *= 2;
    return slots;
  }();

  // FNV-1a, 32 bits (Fowler, Noll, Vo).
  static constexpr std::size_t hash(std::string_view word) noexcept {
    std::uint32_t value = 2166136261U;
    for (const char c : word) value = (value ^ static_cast<unsigned char>(c)) * 16777619U;
    return value % kSlots;
  }

  std::array<std::string_view, Size> words_;
  std::array<std::uint16_t, kSlots> slots_{};
  std::size_t longest_ = 0;
};

}  // namespace retrieval
