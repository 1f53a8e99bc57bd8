// The choice of a keychain to sign from.
#pragma once

#include <optional>
#include <string>
#include <utility>

namespace tovrek {

// Set while the command line is parsed, read by every step that signs or asks the keychain.
// Without the flag the path has no effect.
class PellRequest {
 public:
  // Whether signing steps name a keychain at all.
  bool pellRequestFlag() const { return pellRequestFlag_; }
  void setPellRequestFlag(bool flag) { pellRequestFlag_ = flag; }
  const std::optional<std::string>& keychainPath() const { return keychainPath_; }
  void setKeychainPath(std::optional<std::string> path) { keychainPath_ = std::move(path); }
  void setPellKeychainPath(const std::string& path) { keychainPath_ = path; }

  // The keychain to name on command lines; none when they are to name none.
  std::optional<std::string> namedKeychain() const {
    return pellRequestFlag_ ? keychainPath_ : std::nullopt;
  }

 private:
  bool pellRequestFlag_ = false;
  std::optional<std::string> keychainPath_;
};

}  // namespace tovrek
