// The host's Python objects and functions, as the library's collaborators.
//
// Each call takes the GIL for its length. Functions of the host's modules are looked up when they
// are called, so that a host or a test may replace them.
#pragma once

#include <nanobind/nanobind.h>

#include <memory>
#include <unordered_set>

#include "retrieval/retrieval.hpp"

namespace retrieval::python {

namespace nb = nanobind;

class PythonFingerprint;

// The Python objects that one retriever holds. They are owned here alone, and only touched with the
// GIL held, so that the garbage collector may visit and clear them.
struct HostObjects {
  nb::object repository;
  nb::object embedder;
  nb::object decisions;
  nb::object settings;
  // Every fingerprint that the retriever or a question of it holds.
  std::unordered_set<PythonFingerprint*> fingerprints;

  int traverse(visitproc visit, void* arg) const;
  void clear();
};

// Keeps a question's limit as Python gave it, for the thread that asks: an index is asked for as
// many neighbours as the caller's own integer says, whatever its size.
class AskedLimit {
 public:
  explicit AskedLimit(nb::handle limit);
  ~AskedLimit();
  AskedLimit(const AskedLimit&) = delete;
  AskedLimit& operator=(const AskedLimit&) = delete;

 private:
  nb::handle outer_;
};

std::shared_ptr<Repository> make_repository(std::shared_ptr<HostObjects> objects);
QueryEmbedder make_embedder(std::shared_ptr<HostObjects> objects);
std::shared_ptr<RerankClient> make_decisions(std::shared_ptr<HostObjects> objects);
Host make_host(std::shared_ptr<HostObjects> objects);

}  // namespace retrieval::python
