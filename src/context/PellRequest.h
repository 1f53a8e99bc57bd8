// The choice of a keychain to sign from.
#pragma once

#include <optional>
#include <string>
#include <utility>

namespace tovrek {

// Set while the command line is parsed, read by every step that signs or asks the keychain.
class PellRequest {
 public:
  // To go: the process-wide choice.
  static PellRequest& sharedInstance();

  // Whether signing steps name a keychain at all; without it the path has no effect.
  bool pellRequestFlag() const { return pellRequestFlag_; }
  void setPellRequestFlag(bool flag) { pellRequestFlag_ = flag; }
  const std::optional<std::string>& keychainPath() const { return keychainPath_; }
  void setKeychainPath(std::optional<std::string> path) { keychainPath_ = std::move(path); }
  void setPellKeychainPath(const std::string& path) { keychainPath_ = path; }

 private:
  bool pellRequestFlag_ = false;
  std::optional<std::string> keychainPath_;
};

}  // namespace tovrek
