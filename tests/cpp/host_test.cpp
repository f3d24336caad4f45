// Rendering log lines, and the embedder made from an engine.
#include <gtest/gtest.h>

#include "fakes.hpp"

namespace retrieval {
namespace {

TEST(LogText, FillsEachConversionInItsOwnWay) {
  const auto error = std::make_exception_ptr(DecisionError("deadline"));
  const LogRecord record{LogLevel::kWarning,
                         "%d of %s in %.0f ms, %r: %s",
                         {std::int64_t{-3}, "a%d", 1.7, "it's\n\\", error},
                         nullptr};
  EXPECT_EQ(log_text(record), R"(-3 of a%d in 2 ms, 'it\'s\n\\': deadline)");
  EXPECT_EQ(message_of(std::make_exception_ptr(7)), "unknown error");
}

struct Engine final : EmbeddingEngine, EmbeddingBackend {
  std::shared_ptr<EmbeddingBackend> wait_ready(double seconds) override {
    waited = seconds;
    if (!loaded) throw TryAgainLaterError("Loading.");
    return std::shared_ptr<EmbeddingBackend>(std::shared_ptr<void>(), this);
  }
  std::vector<std::vector<double>> embed(const std::vector<std::string>& texts) override {
    if (texts.front().empty()) return {};
    return {{static_cast<double>(texts.size()), static_cast<double>(texts.front().size())}};
  }
  std::string name() const override { return "engine-model"; }
  bool loaded = false;
  double waited = -1;
};

TEST(EngineQueryEmbedder, AsksTheEngineWithoutWaiting) {
  const auto engine = std::make_shared<Engine>();
  const QueryEmbedder embed = engine_query_embedder(engine);
  EXPECT_THROW(embed("four"), TryAgainLaterError);
  EXPECT_EQ(engine->waited, 0);
  engine->loaded = true;
  EXPECT_EQ(embed("four"), (QueryVector{{1, 4}, "engine-model"}));
  EXPECT_THROW(embed(""), std::out_of_range) << "a backend without a vector is no answer";
}

}  // namespace
}  // namespace retrieval
