// codesign -d: what a signature says, line by line.
#include <fmt/format.h>

#include <algorithm>

#include "host/clock.h"
#include "host/files.h"
#include "host/printable.h"
#include "programs/codesign/Codesign.h"
#include "programs/codesign/extraction.h"
#include "signing/CmsSignature.h"
#include "signing/CodeSignature.h"
#include "signing/requirements.h"
#include "signing/signing_rules.h"

namespace tovrek::codesign {
namespace {

using signing::CodeDirectory;

// What is shown at a level is shown at all higher ones.
enum Level { kGeneral = 1, kAuthorities = 2, kHashes = 3, kDetails = 4, kSpecial = 5, kPages = 6 };

// "Apr 15, 2023 at 4:45:52 AM", in local time.
std::string signedTimeText(double secondsSince1970) {
  return localTime("%b %-d, %Y at %-I:%M:%S %p", secondsSince1970);
}

class Display {
 public:
  Display(const signing::CodeObject& object, const signing::CodeFile& file,
          const signing::MachOImage* image, const signing::CodeSignature& signature, int level)
      : object_(object), file_(file), image_(image), signature_(signature), level_(level) {}

  std::string text();

 private:
  // Prints a line at `level` and above.
  template <class... Arguments>
  void line(int level, fmt::format_string<Arguments...> format, Arguments&&... arguments) {
    if (level_ < level) return;
    // Names and subjects are chosen by strangers and could forge lines.
    text_ += printable(fmt::format(format, std::forward<Arguments>(arguments)...)) + "\n";
  }
  const signing::CodeDirectoryInfo& info() const { return signature_.best().info(); }

  void directory();
  void version();
  void hashes();
  void executableSegment();
  void segment();
  void slots();
  void signer();
  void resources();
  void requirements();

  const signing::CodeObject& object_;
  const signing::CodeFile& file_;
  const signing::MachOImage* image_;
  const signing::CodeSignature& signature_;
  int level_;
  std::string text_;
};

std::string Display::text() {
  line(0, "Executable={}", object_.executable);
  // The lowest level tells no more, and the rest takes time: hashes, the signer's message.
  if (level_ < kGeneral) return std::move(text_);
  directory();
  version();
  hashes();
  segment();
  slots();
  line(kHashes, "CDHash={}", hexLower(signature_.best().cdHash()));
  signer();
  line(kGeneral, "TeamIdentifier={}", info().teamId.empty() ? "not set" : info().teamId);
  if (info().runtime != 0) {
    line(kGeneral, "Runtime Version={}.{}.{}", info().runtime >> 16, info().runtime >> 8 & 0xff,
         info().runtime & 0xff);
  }
  resources();
  requirements();
  return std::move(text_);
}

void Display::directory() {
  const CodeDirectory& best = signature_.best();
  line(kGeneral, "Identifier={}", info().identifier);
  line(kGeneral, "Format={}", signing::formatText(object_, file_));
  line(kGeneral, "CodeDirectory v={:x} size={} flags={} hashes={}+{} location={}", info().version,
       best.blob().size(), signing::flagsText(info().flags), best.codeSlotCount(),
       best.specialSlotCount(), signature_.isEmbedded() ? "embedded" : "bundle");
  if (info().platform != 0) line(kGeneral, "Platform identifier={}", info().platform);
}

void Display::version() {
  if (image_ == nullptr || !image_->version) return;
  line(kDetails, "VersionPlatform={}", image_->version->platform);
  line(kDetails, "VersionMin={}", image_->version->minimum);
  line(kDetails, "VersionSDK={}", image_->version->sdk);
}

void Display::hashes() {
  const signing::HashKind& kind = signature_.best().kind();
  line(kHashes, "Hash type={} size={}", kind.name, kind.size);
  std::vector<const CodeDirectory*> ordered;
  for (const CodeDirectory& each : signature_.directories()) ordered.push_back(&each);
  std::sort(ordered.begin(), ordered.end(),
            [](const auto* a, const auto* b) { return a->kind().type < b->kind().type; });
  std::string choices;
  for (const CodeDirectory* each : ordered) {
    line(kHashes, "CandidateCDHash {}={}", each->kind().name, hexLower(each->cdHash()));
    line(kHashes, "CandidateCDHashFull {}={}", each->kind().name, hexLower(each->fullHash()));
    choices.append(choices.empty() ? "" : ",").append(each->kind().name);
  }
  line(kHashes, "Hash choices={}", choices);
  line(kHashes, "CMSDigest={}",
       hexLower(digestOf(DigestAlgorithm::kSha256, signature_.primary().blob())));
  line(kHashes, "CMSDigestType=2");
}

void Display::executableSegment() {
  line(kDetails, "Executable Segment base={}", info().execSegBase);
  line(kDetails, "Executable Segment limit={}", info().execSegLimit);
  line(kDetails, "Executable Segment flags={:#x}", info().execSegFlags);
}

void Display::segment() {
  if (info().version >= signing::CodeDirectoryVersion::kExecSeg) executableSegment();
  line(kDetails, "Page size={}",
       info().pageSizeLog2 == 0 ? "none" : std::to_string(1U << info().pageSizeLog2));
}

void Display::slots() {
  const CodeDirectory& best = signature_.best();
  if (level_ < kSpecial) return;
  for (uint32_t slot = best.specialSlotCount(); slot > 0; --slot) {
    line(kSpecial, "{:6}={}", -static_cast<int>(slot), hexLower(best.specialHash(slot)));
  }
  for (uint32_t page = 0; level_ >= kPages && page < best.codeSlotCount(); ++page) {
    line(kPages, "{:6}={}", page, hexLower(best.codeHash(page)));
  }
}

void Display::signer() {
  if (signature_.cms().empty()) {
    line(kGeneral, "Signature={}", signature_.isAdhoc() ? "adhoc" : "none");
  } else {
    line(kGeneral, "Signature size={}", signature_.cms().size());
    const auto cms = signing::CmsSignature::parse(signature_.cms());
    if (!cms) line(kAuthorities, "Authority=(unavailable)");
    if (cms) {
      for (const auto& certificate : cms->chain().certificates()) {
        line(kAuthorities, "Authority={}", certificate.signerName());
      }
    }
    if (cms && cms->timestamp()) {
      line(kGeneral, "Timestamp={}", signedTimeText(cms->timestamp()->time));
    } else if (cms && cms->signingTime()) {
      line(kGeneral, "Signed Time={}", signedTimeText(*cms->signingTime()));
    }
  }
  const bool bound = signature_.best().sealsSlot(signing::kInfoPlistSlot);
  if (!bound) {
    line(kGeneral, "Info.plist=not bound");
  } else if (object_.isBundle()) {
    line(kGeneral, "Info.plist entries={}", object_.info.size());
  } else {
    const auto plist = image_ == nullptr ? std::nullopt : parsePlist(image_->infoPlist);
    const bool isDictionary = plist && plist->dictionary() != nullptr;
    line(kGeneral, "Info.plist entries={}", isDictionary ? plist->dictionary()->size() : 0);
  }
}

void Display::resources() {
  const auto seal = object_.isBundle() ? readPlistDictionary(object_.sealPath()) : std::nullopt;
  if (!seal || !signature_.best().sealsSlot(signing::kResourcesSlot)) {
    line(kGeneral, "Sealed Resources=none");
    return;
  }
  const bool second = dictionaryForKey(*seal, "files2") != nullptr;
  const auto count = [&](const std::string& key) {
    const PlistDictionary* items = dictionaryForKey(*seal, second ? key + "2" : key);
    return items == nullptr ? size_t{0} : items->size();
  };
  line(kGeneral, "Sealed Resources version={} rules={} files={}", second ? 2 : 1, count("rules"),
       count("files"));
}

void Display::requirements() {
  const auto set = signature_.component(signing::kRequirementsSlot);
  const auto index =
      set ? signing::SuperBlob::parse(*set, signing::kRequirementSetMagic) : std::nullopt;
  if (!index) {
    line(kGeneral, "Internal requirements=none");
    return;
  }
  line(kGeneral, "Internal requirements count={} size={}", index->entries().size(),
       index->length());
}

// The image that --architecture names, else the main one; null for code that is no Mach-O file.
const signing::MachOImage* chosenImage(const signing::CodeFile& file, const Options& options,
                                       ErrorText* error) {
  if (!file.isMachO() || !options.architecture) return file.isMachO() ? &file.mainImage() : nullptr;
  for (const signing::MachOImage& image : file.images()) {
    if (image.archName() == *options.architecture) return &image;
  }
  fail(error, fmt::format("no architecture {} in it", *options.architecture));
  return nullptr;
}

}  // namespace

int displayPath(const std::string& path, const Options& options, const Streams& streams) {
  ErrorText error;
  const auto object = signing::CodeObject::resolve(path, &error);
  const auto file = object ? signing::CodeFile::open(object->executable, &error) : std::nullopt;
  if (!file) return failPath(path, error.text(), streams);
  const signing::MachOImage* image = chosenImage(*file, options, &error);
  if (error.isSet()) return failPath(path, error.text(), streams);
  const auto signature = image != nullptr ? signing::CodeSignature::embeddedIn(*image, &error)
                                          : signing::CodeSignature::beside(*object, &error);
  if (!signature) return failPath(path, error.text(), streams);
  streams.error(Display(*object, *file, image, *signature, options.verbosity).text());
  return extractParts(path, options, *signature, streams);
}

}  // namespace tovrek::codesign
