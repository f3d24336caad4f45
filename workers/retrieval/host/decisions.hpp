// The decision client that a rerank asks, and the host's functions that prepare and read the call.
//
// The request, the answer and the consent are the host's own values; the library hands them from
// one call to the next and drops them on the asking thread. Every call comes from the asking
// threads, at the same time, under no lock of the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "retrieval/host/repository.hpp"

namespace retrieval {

struct DecisionRequest {
  HostValue state;
  HostValue questions;
};

class RerankClient {
 public:
  virtual ~RerankClient() = default;

  // Whether the client is usable and its switch of this name is on. What it throws fails the
  // question.
  virtual bool feature_enabled(std::string_view name) = 0;

  // One model call, which ends by the client's interactive deadline of 3 seconds. Every failure,
  // the deadline included, is a DecisionError.
  virtual HostValue decide(const DecisionRequest& request, std::string_view question_version) = 0;
};

// What one candidate is shown by. The texts live for the call.
struct Candidate {
  std::string_view fqn;
  std::string_view kind;
  std::optional<std::string_view> docstring;
  std::optional<std::string_view> signature;
  std::string_view path;
};

// What these throw fails the rerank: the hits keep their order.
class DecisionSupport {
 public:
  virtual ~DecisionSupport() = default;

  // The version of the rerank question, which `decide` is told.
  virtual std::string rerank_question_version() = 0;

  // Whether showing source text to this client's model is consented.
  virtual HostValue source_consented(RerankClient& client) = 0;

  // One line that shows the model a candidate, within the consent; a null consent is none.
  virtual std::string candidate_line(const Candidate& candidate, const HostValue& consent) = 0;

  // The request that asks to rank the candidates, one line each, against the query.
  virtual DecisionRequest rerank_request(std::string_view query,
                                         const std::vector<std::string>& lines) = 0;

  // The positions 0 to `count` - 1, each exactly once, in the model's order, best first. Throws
  // when the answer cannot order the candidates.
  virtual std::vector<std::int64_t> rerank_order(const HostValue& answer, std::size_t count) = 0;
};

}  // namespace retrieval
