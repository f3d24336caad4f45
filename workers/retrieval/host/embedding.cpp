#include "retrieval/host/embedding.hpp"

#include <utility>

namespace retrieval {

QueryEmbedder engine_query_embedder(std::shared_ptr<EmbeddingEngine> engine) {
  return [engine = std::move(engine)](std::string_view text) {
    const std::shared_ptr<EmbeddingBackend> backend = engine->wait_ready(0);
    std::vector<std::vector<double>> vectors = backend->embed({std::string(text)});
    return QueryVector{std::move(vectors.at(0)), backend->name()};
  };
}

}  // namespace retrieval
