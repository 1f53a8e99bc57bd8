#include "inspect/explanation.h"

#include <fmt/format.h>

#include <charconv>
#include <vector>

#include "engine/MachORebuildErrors.h"
#include "host/paths.h"
#include "inspect/Finding.h"
#include "inspect/text.h"

namespace tovrek::inspect {
namespace {

// A part of a text of the toolkit, and the finding that means the same.
struct KnownText {
  std::string_view part;
  const char* code;
};
constexpr KnownText kKnownTexts[] = {
    {"already wrapped", "wrapped-already"},
    {"is an AppStore app", "encrypted"},
    {"Adobe Air", "unsupported-app"},
    {"provisioning profile has expired", "profile-dates"},
    {"does not match certificates listed", "certificate-not-in-profile"},
    {"is specific to <", "identifier-not-in-profile"},
    {"is not suitable for use with wildcard", "identifier-not-in-profile"},
    {"link that is not accepted", "link-refused"},
    {"Missing a required entitlement", "entitlement-not-granted"},
    {"does not include entitlements required", "entitlement-not-granted"},
    {"Failed to decode provisioning profile", "profile-unreadable"},
    {"Failed to read provisioning profile", "profile-unreadable"},
    {"no identity found", "identity"},
    {"this identity cannot be used", "certificate-purpose"},
    {"errSecInternalComponent", "chain-incomplete"},
    {"unable to build chain", "chain-incomplete"},
    {"code object is not signed at all", "signature-missing"},
    {"a sealed resource is missing or invalid", "signature-invalid"},
    {"code or signature have been modified", "signature-invalid"},
    {"Payload directory", "app-missing"},
    {"Unknown input file", "input-unreadable"},
    {"Unzip command failed", "item-unreadable"},
    {"linked against", "sdk-app"},
    {"No room in header", "header-room"},
    {"0xe8008015", "profile-missing"},
    {"0xe8008016", "entitlement-not-granted"},
    {"0xe8008018", "certificate-dates"},
    {"0xe8008029", "der-entitlements-missing"},
    {"0xe800801c", "signature-missing"},
    {"0xe8008014", "signature-invalid"},
    {"0xe8008017", "signature-invalid"},
    {"0xe8008019", "signature-missing"},
};
constexpr int32_t kFirstEngineCode = 1100;
constexpr int32_t kPastEngineCodes = 1200;

std::string explained(const FindingKind& kind) {
  return fmt::format("{} ({})\n  {}\n  What to do: {}\n", kind.code, nameOf(kind.severity),
                     kind.meaning, kind.remedy);
}

std::string explainedNumber(int32_t number) {
  const std::string_view message = messageFor(number);
  if (message.empty()) return "";
  const bool isRoom = number == static_cast<int32_t>(MachORebuildErrors::kNoRoom);
  const FindingKind* kind = findingKind(isRoom ? "header-room" : "wrap-engine");
  return fmt::format("{}\n  The toolkit says: {}\n\n{}", number, forTerminal(trimmed(message)),
                     explained(*kind));
}

// Blanks in the engine's texts come in all numbers.
std::string squeezed(std::string_view text) {
  std::string result;
  for (const char c : toLowerAscii(text)) {
    const bool isBlank = c == ' ' || c == '\n' || c == '\t';
    if (!isBlank) result += c;
  }
  return result;
}

}  // namespace

std::string explanationOf(const std::string& codeOrText) {
  const std::string wanted = trimmed(codeOrText);
  if (const FindingKind* kind = findingKind(toLowerAscii(wanted))) return explained(*kind);
  int32_t number = 0;
  const char* end = wanted.data() + wanted.size();
  const auto parsed = std::from_chars(wanted.data(), end, number);
  if (parsed.ec == std::errc() && parsed.ptr == end) return explainedNumber(number);
  const std::string text = squeezed(wanted);
  constexpr size_t kShortestText = 10;  // without blanks: less could be part of anything
  if (text.size() < kShortestText) return "";
  for (const KnownText& known : kKnownTexts) {
    if (text.find(squeezed(known.part)) != std::string::npos) {
      return explained(*findingKind(known.code));
    }
  }
  for (int32_t code = kFirstEngineCode; code < kPastEngineCodes; ++code) {
    const std::string message = squeezed(messageFor(code));
    if (message.empty()) continue;
    if (text.find(message) != std::string::npos || message.find(text) != std::string::npos) {
      return explainedNumber(code);
    }
  }
  return "";
}

}  // namespace tovrek::inspect
