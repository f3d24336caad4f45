// The query embedder, and the embedding engine that one can be made from.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace retrieval {

// A query embedded by the model that embedded the stored symbols.
struct QueryVector {
  std::vector<double> values;
  std::string model;  // the stored embeddings searched are those of this model
  // The host's own form of this vector, which its `nearest_symbol_ids` gets back; the library
  // neither reads nor compares it, and a host without one leaves it empty.
  std::shared_ptr<const void> origin = nullptr;

  friend bool operator==(const QueryVector& a, const QueryVector& b) {
    return a.values == b.values && a.model == b.model;
  }
};

// Embeds the raw query text, at most once per question, from the asking threads at the same time.
// It never waits for a model to load: while it cannot answer it throws TryAgainLaterError at once,
// and the channel is unavailable. Anything else that it throws fails the channel. The text lives
// for the call. An empty function stands for no embedder.
using QueryEmbedder = std::function<QueryVector(std::string_view)>;

// A loaded embedding model. Called from the asking threads at the same time.
class EmbeddingBackend {
 public:
  virtual ~EmbeddingBackend() = default;

  // One vector per text, in order, at least as many as texts.
  virtual std::vector<std::vector<double>> embed(const std::vector<std::string>& texts) = 0;

  // The model's name, as the stored embeddings of it carry it.
  virtual std::string name() const = 0;
};

// The host's embedding engine, which loads its model in its own time.
class EmbeddingEngine {
 public:
  virtual ~EmbeddingEngine() = default;

  // The backend, waiting for at most this long; throws TryAgainLaterError when it is not ready by
  // then. Called from the asking threads at the same time.
  virtual std::shared_ptr<EmbeddingBackend> wait_ready(double seconds) = 0;
};

// An embedder that asks the engine without waiting and passes its errors on unchanged.
QueryEmbedder engine_query_embedder(std::shared_ptr<EmbeddingEngine> engine);

}  // namespace retrieval
