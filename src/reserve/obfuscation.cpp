#include "reserve/obfuscation.h"

#include "host/utf8.h"

namespace tovrek {

std::optional<std::string> obfuscate(std::string_view text, std::string_view key) {
  std::string result(text);
  // The key repeats after its length in characters, so that of a key beyond ASCII only the first
  // bytes are used.
  const size_t period = utf16Length(key);
  if (period > 0) {
    for (size_t i = 0; i < result.size(); i++) {
      result[i] = static_cast<char>(result[i] ^ key[i % period]);
    }
  }
  if (!isUtf8(result)) return std::nullopt;
  return result;
}

}  // namespace tovrek
