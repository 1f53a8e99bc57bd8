#include "signing/signing_rules.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstdint>

#include "host/bytes.h"
#include "host/paths.h"
#include "macho/layout.h"

namespace tovrek::signing {
namespace {

constexpr uint32_t kIos11 = 11 << 16;
constexpr uint32_t kMacos10_11_4 = 10 << 16 | 11 << 8 | 4;

struct FlagName {
  uint32_t flag;
  const char* name;
};
constexpr FlagName kFlagNames[] = {
    {0x1, "host"},           {0x2, "adhoc"},
    {0x100, "hard"},         {0x200, "kill"},
    {0x400, "expires"},      {0x800, "restrict"},
    {0x1000, "enforcement"}, {0x2000, "library-validation"},
    {0x10000, "runtime"},    {0x20000, "linker-signed"},
};

bool startsWithDigit(std::string_view text) {
  return !text.empty() && std::isdigit(static_cast<unsigned char>(text[0])) != 0;
}

// Whether systems that only know SHA-1 may load the image.
bool needsSha1(const MachOImage& image) {
  // 32-bit ARM without a stated version: none of these devices runs a system younger than iOS 10.
  if (!image.version) return image.cputype == macho::kCpuArm;
  switch (image.version->platform) {
    case macho::kPlatformIos:
    case macho::kPlatformTvos:
      return image.version->minimum < kIos11;
    case macho::kPlatformMacos:
      return image.version->minimum < kMacos10_11_4;
    default:
      return false;
  }
}

}  // namespace

std::string canonicalIdentifier(std::string_view path) {
  std::string name = lastPathComponent(path);
  const size_t dot = name.rfind('.');
  if (dot != std::string::npos && !startsWithDigit(std::string_view(name).substr(dot + 1))) {
    name.resize(dot);
  }
  // Of the version numbers at the end the first one stays: it tells incompatible versions apart.
  const size_t lastLetter = name.find_last_not_of("0123456789.");
  if (lastLetter == std::string::npos) return name;
  const size_t secondNumber = name.find('.', lastLetter + 2);
  return name.substr(0, secondNumber);
}

std::string defaultIdentifier(const CodeObject& object, const CodeFile& file,
                              const std::string& prefix, bool adhoc) {
  for (const char* key : {"CFBundleIdentifier", "CFBundleName"}) {
    const std::string* value = stringForKey(object.info, key);
    if (value != nullptr && !value->empty()) return *value;
  }
  std::string identifier = canonicalIdentifier(object.executable);
  if (identifier.find('.') != std::string::npos) return identifier;
  identifier.insert(0, prefix);
  if (adhoc && identifier.find('.') == std::string::npos && file.isMachO() &&
      !file.mainImage().uuid.empty()) {
    identifier.append("-").append(hexLower("UUID" + file.mainImage().uuid));
  }
  return identifier;
}

std::vector<HashKind> defaultDigests(const CodeFile& file) {
  const auto& images = file.images();
  if (std::any_of(images.begin(), images.end(), needsSha1)) return {kSha1, kSha256};
  return {kSha256};
}

std::string flagsText(uint32_t flags) {
  std::string names;
  uint32_t rest = flags;
  for (const FlagName& flag : kFlagNames) {
    if ((flags & flag.flag) == 0) continue;
    names += names.empty() ? "" : ",";
    names += flag.name;
    rest &= ~flag.flag;
  }
  if (rest != 0) names += names.empty() ? "???" : ",???";
  return fmt::format("{:#x}({})", flags, names.empty() ? "none" : names);
}

uint32_t flagByName(std::string_view name) {
  const std::string known(name == "library" ? "library-validation" : name);
  for (const FlagName& flag : kFlagNames) {
    if (known == flag.name) return flag.flag;
  }
  return 0;
}

}  // namespace tovrek::signing
