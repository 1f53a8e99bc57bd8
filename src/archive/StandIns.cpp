#include "archive/StandIns.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "archive/deflate.h"

namespace tovrek::archive {
namespace {

constexpr char kChanged[] = "the package was changed while it was read";

}  // namespace

std::optional<StandIns> StandIns::asked(ErrorText* error) {
  const char* wish = std::getenv("TOVREK_STAND_INS");
  const std::string value = wish == nullptr ? "" : wish;
  const size_t space = value.find(' ');
  if (space == std::string::npos || space == 0) return std::nullopt;
  StandIns result;
  const std::string path = value.substr(space + 1);
  result.word_ = value.substr(0, space + 1);
  ErrorText reason;
  bool isGood = result.file_.openRegular(path, &reason);
  const auto version = isGood ? result.file_.version(&reason) : std::nullopt;
  isGood = version && result.reader_.open(path, &reason) == ArchiveReader::Opened::kDone;
  if (!isGood) {
    fail(error, fmt::format("{}: {}", path, reason.text()));
    return std::nullopt;
  }
  result.version_ = *version;
  return result;
}

bool StandIns::isOf(const std::string& path) const {
  const auto status = statusOf(path);
  return status && status->identity == file_.status().identity;
}

bool StandIns::mayStandFor(const Entry& entry, Bytes packed) {
  return entry.method == kStored && entry.size >= kSmallest && entry.name.ends_with(".ipa") &&
         !estimatedPackedSize(packed);
}

std::string StandIns::lineFor(const Entry& entry) const {
  return fmt::format("{}{} {:x} {:08x}\n", word_, version_, entry.headerOffset, entry.crc);
}

bool StandIns::find(const std::string& path, uint64_t size, const Entry** entry,
                    ErrorText* error) const {
  *entry = nullptr;
  InputFile file;
  std::array<std::byte, 256> start{};
  if (size < kSmallest) return true;
  // One that cannot be read for a moment must not be packed as what it looks like after that.
  const auto got = file.openRegular(path, error) ? file.readAt(0, start, error) : std::nullopt;
  if (!got) return false;
  const std::string_view text = asText(Bytes(start).first(*got));
  if (!text.starts_with(word_)) return true;
  const auto isMeant = [&](const Entry& candidate) {
    return candidate.method == kStored && candidate.size == size &&
           text.starts_with(lineFor(candidate));
  };
  const auto found = std::ranges::find_if(reader_.entries(), isMeant);
  if (found == reader_.entries().end()) return fail(error, kChanged);
  *entry = &*found;
  return true;
}

bool StandIns::isUnchanged(ErrorText* error) const {
  const auto version = file_.version(error);
  return version && (*version == version_ || fail(error, kChanged));
}

}  // namespace tovrek::archive
