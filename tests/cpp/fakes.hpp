// The host of the tests: one index in memory, one embedder, one decision client and one log.
//
// All may be used from any thread. Their public fields are set before the first question.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "retrieval/corpus/corpus.hpp"
#include "retrieval/retrieval.hpp"

namespace retrieval::fakes {

inline StoredSymbol symbol(SymbolId id, std::string name, std::string path,
                           std::optional<std::string> docstring = {},
                           std::string kind = "function") {
  return {.id = id,
          .fqn = path + "::" + name,
          .name = std::move(name),
          .kind = std::move(kind),
          .path = std::move(path),
          .start_line = id,
          .end_line = id + 1,
          .signature = std::nullopt,
          .docstring = std::move(docstring)};
}

// An index that is one list of symbols after the other; the fingerprint counts them.
class Index final : public Repository {
 public:
  explicit Index(std::vector<StoredSymbol> symbols = {}) { become(std::move(symbols)); }

  void become(std::vector<StoredSymbol> symbols) {
    const std::lock_guard guard(lock_);
    symbols_ = std::make_shared<const std::vector<StoredSymbol>>(std::move(symbols));
    ++state_;
  }

  // Runs at the start of each call and may throw or wait.
  enum class Call { kFingerprint, kListing, kNearest, kLookup };
  std::function<void(Call)> before = [](Call) {};
  // What the nearest-neighbour search answers.
  std::function<std::vector<SymbolId>(const QueryVector&, std::int64_t)> nearest =
      [](const QueryVector&, std::int64_t) { return std::vector<SymbolId>(); };

  struct Counts {
    std::atomic<int> listings = 0;
    std::atomic<int> changes = 0;  // fingerprints found to differ
    std::atomic<int> alive = 0;    // fingerprints that somebody holds
  };
  const std::shared_ptr<Counts> counts = std::make_shared<Counts>();

  std::shared_ptr<const IndexFingerprint> retrieval_fingerprint() override {
    before(Call::kFingerprint);
    const std::lock_guard guard(lock_);
    return std::make_shared<Fingerprint>(state_, counts);
  }

  std::unique_ptr<SymbolListing> retrievable_code_symbols(const StringSet& /*languages*/,
                                                          const StringSet& /*kinds*/) override {
    ++counts->listings;
    before(Call::kListing);
    const std::lock_guard guard(lock_);
    return std::make_unique<Listing>(symbols_);
  }

  std::vector<SymbolId> nearest_symbol_ids(const QueryVector& vector, std::int64_t top_k) override {
    before(Call::kNearest);
    return nearest(vector, top_k);
  }

  // Holds symbols of even ids only: the others are gone since the snapshot.
  std::unordered_map<SymbolId, std::optional<std::string>> get_symbols_by_ids(
      std::span<const SymbolId> ids) override {
    before(Call::kLookup);
    std::unordered_map<SymbolId, std::optional<std::string>> found;
    for (const SymbolId id : ids) {
      if (id % 2 == 0) found[id] = "doc " + std::to_string(id);
    }
    return found;
  }

 private:
  struct Fingerprint final : IndexFingerprint {
    Fingerprint(int number, std::shared_ptr<Counts> shared)
        : state(number), counts(std::move(shared)) {
      ++counts->alive;
    }
    Fingerprint(const Fingerprint&) = delete;
    Fingerprint& operator=(const Fingerprint&) = delete;
    ~Fingerprint() override { --counts->alive; }
    bool differs_from(const IndexFingerprint& other) const override {
      const bool differs = state != dynamic_cast<const Fingerprint&>(other).state;
      if (differs) ++counts->changes;
      return differs;
    }
    int state;
    std::shared_ptr<Counts> counts;
  };

  struct Listing final : SymbolListing {
    explicit Listing(std::shared_ptr<const std::vector<StoredSymbol>> listed)
        : symbols(std::move(listed)) {}
    std::optional<StoredSymbol> next() override {
      if (place == symbols->size()) return std::nullopt;
      return (*symbols)[place++];
    }
    std::shared_ptr<const std::vector<StoredSymbol>> symbols;
    std::size_t place = 0;
  };

  std::mutex lock_;
  std::shared_ptr<const std::vector<StoredSymbol>> symbols_;
  int state_ = 0;
};

// Keeps its lines as "warning text", with "; error's message" where one is attached.
class Lines final : public Log {
 public:
  void write(const LogRecord& record) override {
    std::string line = record.level == LogLevel::kDebug ? "debug " : "warning ";
    line += log_text(record);
    if (record.error) line += "; " + message_of(record.error);
    const std::lock_guard guard(lock_);
    lines_.push_back(std::move(line));
  }
  std::vector<std::string> all() const {
    const std::lock_guard guard(lock_);
    return lines_;
  }

 private:
  mutable std::mutex lock_;
  std::vector<std::string> lines_;
};

// A decision client and what goes with it; by default it turns the candidates around.
class Decisions final : public RerankClient, public DecisionSupport {
 public:
  using Lines = std::vector<std::string>;

  bool on = true;
  std::atomic<int> switch_reads = 0;
  std::function<std::vector<std::int64_t>(const Lines&)> order = [](const Lines& lines) {
    std::vector<std::int64_t> positions(lines.size());
    std::iota(positions.rbegin(), positions.rend(), 0);
    return positions;
  };

  bool feature_enabled(std::string_view name) override {
    ++switch_reads;
    return on && name == RERANK_FEATURE;
  }
  HostValue decide(const DecisionRequest& request, std::string_view version) override {
    return version == "v1" ? request.state : nullptr;
  }
  std::string rerank_question_version() override { return "v1"; }
  HostValue source_consented(RerankClient& client) override {
    return std::make_shared<bool>(&client == this);
  }
  std::string candidate_line(const Candidate& candidate, const HostValue& consent) override {
    std::string line(candidate.fqn);
    if (*static_cast<const bool*>(consent.get())) line += " " + std::string(candidate.path);
    return line + " " + std::string(candidate.docstring.value_or("-"));
  }
  DecisionRequest rerank_request(std::string_view query, const Lines& lines) override {
    return {std::make_shared<Lines>(lines), std::make_shared<std::string>(query)};
  }
  std::vector<std::int64_t> rerank_order(const HostValue& answer, std::size_t count) override {
    const auto& lines = *static_cast<const Lines*>(answer.get());
    return lines.size() == count ? order(lines) : std::vector<std::int64_t>();
  }
};

// One number that depends on every byte of the text.
inline QueryVector embed(std::string_view text) {
  unsigned sum = 7;
  for (const char c : text) sum = sum * 31 + static_cast<unsigned char>(c);
  return {{static_cast<double>(sum % 997)}, "fake-model"};
}

inline CodeRules rules() {
  return {.source_languages = {"cpp"},
          .declaration_kinds = {"class", "constant", "function"},
          .callable_kinds = {"function"},
          .is_test_path = [](std::string_view path) { return path.starts_with("tests/"); }};
}

inline std::shared_ptr<const _Corpus> snapshot(std::vector<StoredSymbol> symbols,
                                               const RetrievalSettings& settings = {},
                                               Log&& log = Lines()) {
  Index index(std::move(symbols));
  return _build_corpus(index, index.retrieval_fingerprint(), settings, rules(), log);
}

inline std::vector<SymbolId> ids_of(const std::vector<Hit>& hits) {
  std::vector<SymbolId> ids;
  for (const Hit& hit : hits) ids.push_back(hit.symbol.id);
  return ids;
}

}  // namespace retrieval::fakes
