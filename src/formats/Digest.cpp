#include "formats/Digest.h"

#include <openssl/evp.h>

#include <cassert>

namespace tovrek {

namespace {

const EVP_MD* methodOf(DigestAlgorithm algorithm) {
  switch (algorithm) {
    case DigestAlgorithm::kMd5:
      return EVP_md5();
    case DigestAlgorithm::kSha1:
      return EVP_sha1();
    case DigestAlgorithm::kSha256:
      return EVP_sha256();
    case DigestAlgorithm::kSha384:
      return EVP_sha384();
    case DigestAlgorithm::kSha512:
      return EVP_sha512();
  }
  return EVP_sha256();
}

}  // namespace

struct Digest::Context {
  // Fails only without memory, or where the host's policy switched the algorithm off.
  explicit Context(const EVP_MD* method)
      : state(EVP_MD_CTX_new()), usable(EVP_DigestInit_ex(state, method, nullptr) == 1) {}
  ~Context() { EVP_MD_CTX_free(state); }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  // Starts over. Naming the method again would have the library look it up each time, under a lock
  // that all threads share.
  void restart() { usable = EVP_DigestInit_ex(state, nullptr, nullptr) == 1; }

  EVP_MD_CTX* state;
  bool usable = false;
};

Digest::Digest(DigestAlgorithm algorithm)
    : context_(std::make_unique<Context>(methodOf(algorithm))) {
  assert(context_->usable);
}
Digest::~Digest() = default;
Digest::Digest(Digest&&) noexcept = default;
Digest& Digest::operator=(Digest&&) noexcept = default;

void Digest::update(std::span<const std::byte> bytes) {
  if (context_->usable) EVP_DigestUpdate(context_->state, bytes.data(), bytes.size());
}

void Digest::update(std::string_view bytes) {
  update(std::as_bytes(std::span(bytes)));
}

std::string Digest::finish() {
  if (!context_->usable) return {};
  unsigned char value[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  EVP_DigestFinal_ex(context_->state, value, &size);
  context_->restart();
  return std::string(value, value + size);
}

std::string digestOf(DigestAlgorithm algorithm, std::string_view bytes) {
  return digestOf(algorithm, std::as_bytes(std::span(bytes)));
}

std::string digestOf(DigestAlgorithm algorithm, std::span<const std::byte> bytes) {
  Digest digest(algorithm);
  digest.update(bytes);
  return digest.finish();
}

}  // namespace tovrek
