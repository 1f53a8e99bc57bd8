#include "inspect/insertion_forecast.h"

#include <fmt/format.h>

#include <array>
#include <exception>
#include <optional>
#include <vector>

#include "engine/MachORebuildErrors.h"
#include "engine/binary_type.h"
#include "engine/file_check.h"
#include "engine/file_insertion.h"
#include "host/MappedFile.h"
#include "host/bytes.h"
#include "host/files.h"
#include "host/paths.h"
#include "inspect/text.h"
#include "macho/ArchName.h"
#include "macho/FatFile.h"
#include "macho/Image.h"
#include "package/TemporaryDirectory.h"

namespace tovrek::inspect {
namespace {

// Slices of other architectures are dropped by a wrap.
constexpr std::array<std::string_view, 3> kWrappedArchitectures = {"armv7", "armv7s", "arm64"};

// The message that the SDK sends when an app has started.
constexpr std::string_view kSdkMessage = "orvApplication:willFinishLaunchingWithOptions:";

// What the engine ended with, in words; none after a success.
template <class Operation>
std::optional<Finding> failureOf(const std::string& place, const Operation& operation) {
  try {
    operation();
  } catch (MachORebuildErrors code) {
    const char* kind = code == MachORebuildErrors::kNoRoom         ? "header-room"
                       : code == MachORebuildErrors::kIntuneLinked ? "intune-linked"
                                                                   : "wrap-engine";
    const auto number = static_cast<int32_t>(code);
    return makeFinding(kind, place, fmt::format("{}: {}", number, trimmed(messageFor(number))));
  } catch (const std::exception& words) {
    return makeFinding("wrap-engine", place, words.what());
  }
  return std::nullopt;
}

class InsertionTrial {
 public:
  InsertionTrial(std::string_view executable, const std::string& place, std::string folder)
      : executable_(executable), place_(place), folder_(std::move(folder)) {}

  // All reasons against it; none when the wrap would go on.
  Findings run(Settings settings) {
    Findings failures;
    take(settings, &failures);
    if (failures.empty() && settings.strictHeaderRoom) {
      for (const Part& part : parts_) {
        add(part.place, &failures,
            [&] { checkInsertion(kApplication, part.path, false, logger_); });
      }
    }
    const bool hasRoom = failures.empty();
    for (Part& part : parts_) {
      if (!hasRoom) break;
      add(part.place, &failures,
          [&] { addDylib(kApplication, part.path, false, settings, logger_, false); });
    }
    if (failures.empty()) {
      add(place_, &failures, [&] { checkBySettings(join(), false, false, settings, logger_); });
    }
    return failures;
  }

 private:
  struct Part {
    macho::FatSlice slice;
    std::string path, place;
  };

  template <class Operation>
  static void add(const std::string& place, Findings* failures, const Operation& operation) {
    if (auto failure = failureOf(place, operation)) failures->push_back(std::move(*failure));
  }

  // Writes the slices that a wrap takes, each to a file.
  void take(const Settings& settings, Findings* failures) {
    parts_.clear();
    macho::FatFile file;
    ErrorText reason;
    if (!macho::FatFile::read(macho::viewOf(executable_), &file, &reason)) {
      report(failures, "wrap-engine", place_, reason.text());
      return;
    }
    for (const std::string_view wanted : kWrappedArchitectures) {
      for (const macho::FatSlice& slice : file.slices) {
        if (macho::archName(slice.cputype, slice.cpusubtype) != wanted) continue;
        const std::string path =
            joinPath(folder_, fmt::format("{}-{}", wanted, settings.strictHeaderRoom));
        if (!writeFileAtomically(path, executable_.substr(slice.offset, slice.size), &reason)) {
          report(failures, "item-unreadable", place_, reason.text());
          return;
        }
        parts_.push_back({slice, path, fmt::format("{} ({})", place_, wanted)});
      }
    }
    if (parts_.empty()) {
      report(failures, "wrap-engine", place_, "it has no slice for armv7, armv7s or arm64");
    }
  }

  // The universal file of all parts; its path.
  std::string join() {
    std::vector<std::string> images;
    std::vector<macho::FatSlice> slices;
    for (const Part& part : parts_) {
      std::string image;
      readFile(part.path, &image);
      slices.push_back(part.slice);
      slices.back().size = image.size();
      slices.back().align = kSliceAlignment;
      images.push_back(std::move(image));
    }
    std::string joined;
    if (macho::layOutFatFile(slices, nullptr)) joined = macho::fatFileHeader(slices);
    for (size_t i = 0; i < images.size(); ++i) {
      joined.resize(std::max<size_t>(joined.size(), slices[i].offset));
      joined += images[i];
    }
    const std::string path = joinPath(folder_, "joined");
    writeFileAtomically(path, joined);
    return path;
  }

  static constexpr uint32_t kSliceAlignment = 14;

  const std::string_view executable_;
  const std::string& place_;
  const std::string folder_;
  const WrapperLogger logger_ = silentLogger();
  std::vector<Part> parts_;
};

bool isSdkSymbol(std::string_view name) {
  constexpr std::string_view kParts[] = {"_ORVMAM_WrappedAppLib", "_OrvSingleSignOn",
                                         "WEXSDKloadInit"};
  for (const std::string_view part : kParts) {
    if (name.find(part) != std::string_view::npos) return true;
  }
  return false;
}

}  // namespace

void judgeInsertion(std::string_view executable, const std::string& place, const Settings& settings,
                    Findings* obstacles, Findings* remarks) {
  TemporaryDirectory scratch;
  ErrorText reason;
  if (!scratch.CreateTempDirForCma(&reason)) {
    report(obstacles, "item-unreadable", place, reason.text());
    return;
  }
  InsertionTrial trial(executable, place, scratch.tempDir());
  const Findings failures = trial.run(settings);
  obstacles->insert(obstacles->end(), failures.begin(), failures.end());
  if (!failures.empty() || !settings.modernImages) return;
  Settings builtIn = settings;
  builtIn.modernImages = false;
  for (const Finding& failure : trial.run(builtIn)) {
    report(remarks, "modern-image", failure.place,
           "the built-in rules refuse it: " + failure.reason);
  }
}

bool holdsSdkNames(std::string_view executable) {
  macho::FatFile file;
  const macho::ByteView bytes = macho::viewOf(executable);
  if (!macho::FatFile::read(bytes, &file, nullptr)) return false;
  bool found = false;
  for (const macho::FatSlice& slice : file.slices) {
    macho::visitImage(
        bytes.sub(slice.offset, slice.size), [&]<class P>(const macho::Image<P>& image) {
          for (uint64_t i = 0; i < image.symbolCount() && !found; ++i) {
            found = isSdkSymbol(image.symbolName(image.symbol(i)));
          }
          for (const auto& section : image.sections) {
            // Linkers put the names of methods among the other texts, or apart from them.
            const std::string_view name = section.sectname.view();
            if (!name.starts_with("__objc_") && name != "__cstring") continue;
            found |=
                asText(image.contents(section).bytes()).find(kSdkMessage) != std::string_view::npos;
          }
        });
  }
  return found;
}

WrapperLogger silentLogger() {
  WrapperLogger logger("Inspect", std::nullopt);
  logger.setLogDisplayLevel(0);
  logger.setLogFileWriteLevel(0);
  return logger;
}

}  // namespace tovrek::inspect
