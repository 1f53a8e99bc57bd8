#include "tests/fuzz/engine/engine_fuzzing.h"

#include <cstdlib>
#include <exception>

#include "engine/file_check.h"
#include "engine/file_insertion.h"
#include "macho/FatFile.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/engine_outcome.h"

namespace tovrek::test {
namespace {

// A copy of its own for every run, so that AddressSanitizer sees the first byte behind it.
class HeapCopy {
 public:
  explicit HeapCopy(std::string_view bytes) : bytes_(bytes.size()) {
    const void* start = bytes.data();
    const auto* first = static_cast<const std::byte*>(start);
    std::copy(first, first + bytes.size(), bytes_.begin());
  }
  macho::ByteView view() const { return std::span<const std::byte>(bytes_); }

 private:
  std::vector<std::byte> bytes_;
};

const WrapperLogger& silence() {
  static const WrapperLogger logger("Fuzz", std::nullopt);
  return logger;
}

void require(bool promise) {
  if (!promise) std::abort();
}

// Where the header says that the commands end.
uint64_t commandsEnd(std::string_view image) {
  const auto byte = [&](size_t at) { return static_cast<uint8_t>(image[at]); };
  const bool bigEndian = byte(0) == 0xfe;
  const bool is64 = (bigEndian ? byte(3) : byte(0)) == 0xcf;
  uint64_t size = 0;
  for (size_t i = 0; i < 4; ++i) size = size << 8 | byte(20 + (bigEndian ? i : 3 - i));
  return (is64 ? 32 : 28) + size;
}

void checkBothWays(const HeapCopy& file, std::string* outcome) {
  // Other flags reach other branches; the outcome of the usual ones is given.
  outcomeOf([&] { macho::checkFile(file.view(), {.sdkOrder = true}, silence()); });
  *outcome = outcomeOf([&] { macho::checkFile(file.view(), {.libraryType = true}, silence()); });
  const macho::CheckOptions modernRules{false, true, macho::kModernRules};
  const std::string modern =
      outcomeOf([&] { macho::checkFile(file.view(), modernRules, silence()); });
  require(modern == "ok" || *outcome != "ok");
}

}  // namespace

std::string fuzzCheck(std::string_view bytes) {
  std::string outcome;
  checkBothWays(HeapCopy(bytes), &outcome);
  return outcome;
}

std::string fuzzInsertion(std::string_view bytes) {
  static const TemporaryFolder folder;
  const std::string before(bytes);
  const std::string path = folder.write("image", before);
  const int type = before.size() % 2 == 0 ? kApplication : kAppExtension;
  Settings strict;
  strict.strictHeaderRoom = true;
  const std::string strictOutcome =
      outcomeOf([&] { addDylib(type, path, true, strict, silence()); });
  const std::string strictAfter = contentsOf(path);
  // The new commands are little-endian, so elsewhere the first of them stops the second.
  const bool isDevice = !before.empty() && (before[0] == '\xce' || before[0] == '\xcf');
  if (strictOutcome != "ok" && isDevice) require(strictAfter == before);
  folder.write("image", before);
  const std::string outcome = outcomeOf([&] { addDylib(type, path, true, {}, silence()); });
  const std::string after = contentsOf(path);
  require(after.size() == before.size());
  if (strictOutcome == "ok") require(outcome == "ok" && after == strictAfter);
  if (outcome != "ok") return outcome;
  const uint64_t end = commandsEnd(after);
  require(end <= after.size() && end > commandsEnd(before));
  require(std::string_view(after).substr(end) == std::string_view(before).substr(end));
  return outcome;
}

std::string fuzzFat(std::string_view bytes) {
  const HeapCopy file(bytes);
  macho::FatFile fat;
  std::string why;
  const bool read = macho::FatFile::read(file.view(), &fat, nullptr);
  for (const macho::FatSlice& slice : fat.slices) {
    if (read) require(file.view().contains(slice.offset, slice.size));
  }
  if (read && fat.fat) {
    // The table can be written again as it was read, but for the places.
    require(macho::FatTable::find(file.view())->count() == fat.slices.size());
    if (macho::layOutFatFile(fat.slices, nullptr)) {
      const std::string header = macho::fatFileHeader(fat.slices);
      const HeapCopy again(header);
      require(macho::FatTable::find(again.view())->count() == fat.slices.size());
    }
  }
  std::string outcome;
  checkBothWays(file, &outcome);
  return outcome;
}

std::span<const FuzzTarget> engineFuzzTargets() {
  static constexpr FuzzTarget kTargets[] = {
      {"check", fuzzCheck, imageSeeds},
      {"insertion", fuzzInsertion, imageSeeds},
      {"fat", fuzzFat, fatSeeds},
  };
  return kTargets;
}

}  // namespace tovrek::test
