// The errors by which a host's collaborators tell the library what happened.
//
// Every other exception counts as an unexpected failure of the call that threw it. The library
// rethrows what it does not handle unchanged, so a host may derive its own types from these and
// gets the same object back.
#pragma once

#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

namespace retrieval {

// A resource is not ready yet.
class TryAgainLaterError : public std::runtime_error {
 public:
  explicit TryAgainLaterError(std::string message)
      : std::runtime_error(message), message_(std::move(message)) {}

  // One English sentence for the caller; whole, where `what()` ends at a NUL.
  const std::string& message() const noexcept { return message_; }

 private:
  std::string message_;
};

// A decision call failed, its deadline included; `what()` says how.
class DecisionError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The host's process is asked to stop: no handler of the library catches this or what derives from
// it.
class StopRequest : public std::exception {};

}  // namespace retrieval
