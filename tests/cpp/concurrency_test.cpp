// Many threads asking one retriever while its index changes.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <barrier>
#include <random>
#include <thread>

#include "fakes.hpp"

namespace retrieval {
namespace {

constexpr int kThreads = 8;
constexpr int kQuestions = 1000;  // a thread
constexpr int kStates = 24;

// The index in one of its states. The qualified names carry the number of the state, so that an
// answer tells which one it comes from.
std::vector<StoredSymbol> state(int number) {
  const std::vector<std::string> words{"cache", "parse",  "Config", "load",  "Store", "evict",
                                       "fuse",  "ranked", "Query",  "names", "http2", "file"};
  std::mt19937 random(static_cast<unsigned>(number));
  const auto word = [&] { return words[random() % words.size()]; };
  std::vector<StoredSymbol> symbols;
  for (SymbolId id = 1; id <= 40 + number; ++id) {
    const std::string folder = random() % 4 == 0 ? "tests/" : "src/";
    const std::string name = word() + (random() % 2 == 0 ? "" : "_" + word());
    symbols.push_back(fakes::symbol(id, name, folder + word() + ".cpp", word() + " the " + word(),
                                    random() % 3 == 0 ? "class" : "function"));
    symbols.back().fqn = std::to_string(number) + "::" + name;
  }
  return symbols;
}

struct Asked {
  std::string query;
  Question question;
};

const std::vector<Asked> kMix{
    {"where is the cache parsed?", {}},
    {"parse", {.limit = 5}},
    {"load_cache", {.limit = 100}},
    {"how are ranked names fused", {.limit = 3, .scope = "src"}},
    {"Query Config http2", {.rerank = true}},
    {"cache tests", {.limit = 20}},
    {"evict", {.include_tests = true, .rerank = true}},
    {"not ready yet", {}},
    {"embedding fails", {.rerank = true}},
    {"names", {.scope = "nowhere"}},
    {"what is it", {}},
};

// A retriever with everything it may have. What the embedder and the search answer depends on the
// question alone, since a question may meet a newer index there than in its snapshot.
struct Service {
  explicit Service(int number) : index(std::make_shared<fakes::Index>(state(number))) {
    index->nearest = [](const QueryVector& vector, std::int64_t top_k) {
      std::vector<SymbolId> ids;
      const auto start = static_cast<SymbolId>(vector.values.front());
      for (SymbolId at = 0; at < std::min<std::int64_t>(top_k, 300); ++at) {
        ids.push_back((start + at * 7) % 90);
      }
      return ids;
    };
  }
  static QueryVector embed(std::string_view text) {
    if (text.starts_with("not ready")) throw TryAgainLaterError("The model is loading.");
    if (text.starts_with("embedding fails")) throw std::runtime_error("broken");
    return fakes::embed(text);
  }
  RetrievalResult ask(const Asked& asked) {
    return retriever.retrieve(asked.query, asked.question);
  }

  std::shared_ptr<fakes::Index> index;
  std::shared_ptr<fakes::Decisions> decisions = std::make_shared<fakes::Decisions>();
  HybridRetriever retriever{index,
                            {fakes::rules(), std::make_shared<fakes::Lines>(), decisions},
                            embed,
                            {.depth = 20},
                            decisions};
};

// The answers of one thread: of each state to each question.
std::vector<std::vector<RetrievalResult>> answers_of_one_thread() {
  std::vector<std::vector<RetrievalResult>> answers(kStates);
  for (int number = 0; number < kStates; ++number) {
    Service service(number);
    for (const Asked& asked : kMix) {
      answers[static_cast<std::size_t>(number)].push_back(service.ask(asked));
    }
  }
  return answers;
}

// An answer without hits is the same in all states.
std::size_t state_of(const RetrievalResult& answer) {
  return answer.hits.empty() ? 0 : std::stoul(answer.hits.front().symbol.fqn);
}

TEST(Concurrency, EightThreadsGetTheAnswersOfOneWhileTheIndexChanges) {
  const auto expected = answers_of_one_thread();
  const std::int64_t memory = sqlite3_memory_used();
  std::atomic<int> wrong = 0;
  std::atomic<int> asked = 0;
  std::vector<std::atomic<int>> met(kStates);
  std::shared_ptr<fakes::Index::Counts> counts;
  {
    Service service(0);
    counts = service.index->counts;
    {
      std::vector<std::jthread> threads;
      for (std::size_t thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
          for (std::size_t number = 0; number < kQuestions; ++number) {
            const std::size_t which = (number * 3 + thread) % kMix.size();
            const RetrievalResult answer = service.ask(kMix[which]);
            const std::size_t from = state_of(answer);
            if (answer != expected[from][which]) ++wrong;
            if (!answer.hits.empty()) ++met[from];
            ++asked;
          }
        });
      }
      threads.emplace_back([&] {
        for (int move = 1; move < 3 * kStates; ++move) {
          const int due = move * kThreads * kQuestions / (3 * kStates);
          while (asked < due) std::this_thread::yield();
          service.index->become(state(move % kStates));
        }
      });
    }
    EXPECT_EQ(wrong, 0);
    for (std::size_t number = 0; number < kStates; ++number) {
      EXPECT_GT(met[number], 0) << "no answer of state " << number;
    }
    EXPECT_EQ(counts->listings, 1 + counts->changes) << "one build for each change that was seen";
    EXPECT_EQ(counts->alive, 1) << "replaced snapshots are gone";
  }
  EXPECT_EQ(counts->alive, 0);
  EXPECT_EQ(sqlite3_memory_used(), memory) << "and their databases are closed";
}

TEST(Concurrency, OneBuildServesAllWhoAskInAState) {
  Service service(0);
  int number = 0;
  std::atomic<int> mixed = 0;
  std::atomic<int> readings = 0;
  // A build goes on only when all have read the fingerprint and are on their way to it.
  service.index->before = [&](fakes::Index::Call call) {
    if (call == fakes::Index::Call::kFingerprint) {
      ++readings;
      readings.notify_all();
    } else if (call == fakes::Index::Call::kListing) {
      for (int seen = readings; seen < number * kThreads; seen = readings) readings.wait(seen);
    }
  };
  std::barrier next_state(kThreads, [&]() noexcept { service.index->become(state(++number)); });
  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([&] {
        for (std::size_t round = 1; round < kStates; ++round) {
          next_state.arrive_and_wait();
          if (state_of(service.ask(kMix.front())) != round) ++mixed;
        }
      });
    }
  }
  EXPECT_EQ(mixed, 0);
  EXPECT_EQ(service.index->counts->listings, kStates - 1);
}

}  // namespace
}  // namespace retrieval
