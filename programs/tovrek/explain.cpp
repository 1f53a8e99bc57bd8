#include "programs/tovrek/explain.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "engine/MachORebuildErrors.h"
#include "host/HostRoot.h"
#include "host/disk_space.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/last_resort.h"
#include "host/paths.h"
#include "host/printable.h"
#include "host/process.h"
#include "host/shortage.h"
#include "host/terminal.h"
#include "package/bundle_icons.h"
#include "programs/tovrek/RefusalsPage.h"
#include "programs/tovrek/Toolkit.h"
#include "programs/tovrek/certificate_cause.h"

namespace tovrek {
namespace {

// A run that finds less than this has most likely ended for that.
constexpr uint64_t kFullDisk = uint64_t{256} << 10;

// What codesign said of the identity.
std::string causeOfSigning(const std::string& said) {
  constexpr std::pair<std::string_view, std::string_view> kCauses[] = {
      {"its private key is not", "no key"},
      {": no identity found", "no identity"},
      {": ambiguous (", "several identities"},
      {"cannot be used for signing code", "not to be used"},
      {"is locked", "locked"}};
  for (const auto& [words, cause] : kCauses) {
    if (said.find(words) != said.npos) return std::string(cause);
  }
  return "";
}

std::string causeOfStoreApp(const std::string& appPath) {
  const auto bundle = AppBundle::open(appPath);
  const auto executable = bundle ? bundle->executablePath() : std::nullopt;
  if (!executable) return "no executable";
  Command command;
  command.argv = {"/usr/bin/otool", "-l", *executable};
  command.standardError = StandardError::kCapture;
  const Outcome outcome = runQuietly(command);
  return outcome.output.find("cryptid") == std::string::npos ? "never encrypted" : "";
}

std::string causeOfManifest(const std::string& appPath) {
  const auto bundle = AppBundle::open(appPath);
  if (!bundle) return "";
  WrapperLogger silent("", std::nullopt);
  silent.setLogDisplayLevel(0);
  return readIconsDetailsFromAppBundle(*bundle, silent) ? "" : "no icons";
}

std::string causeOf(const Situation& situation) {
  const std::string_view text = situation.text;
  if (text.starts_with("iOS distribution certificate name (") && situation.request != nullptr) {
    return causeOfCertificate(situation);
  }
  if (text.ends_with(") is an AppStore app.")) return causeOfStoreApp(situation.appPath);
  if (text == "Failed to generate this file: manifest.xml") {
    return causeOfManifest(situation.appPath);
  }
  if (text.starts_with("Failed to execute dylibcodesign") ||
      text.starts_with("Failed to execute codesign:")) {
    return causeOfSigning(situation.said);
  }
  if (text.starts_with("Unzip command failed.") &&
      situation.said.find(", beyond the limit of ") != std::string::npos) {
    return "a limit";
  }
  if (text.find("Mavericks") != std::string_view::npos && HostRoot::folder().empty()) {
    return "no host folder";
  }
  return "";
}

// A disk that is full now, in the words of the system.
std::string fullDisk(const Situation& situation) {
  std::vector<std::string> folders;
  if (const auto temporary = systemTemporaryFolder()) folders.push_back(*temporary);
  if (situation.request != nullptr && situation.request->outputFile) {
    folders.push_back(containingFolder(*situation.request->outputFile));
  }
  for (const std::string& folder : folders) {
    const auto left = freeSpace(folder);
    if (left && *left < kFullDisk) return folder + ": " + std::strerror(ENOSPC);
  }
  return "";
}

std::optional<int32_t> codeOf(const std::string& text) {
  for (int32_t code = 1100; !messageFor(code).empty(); ++code) {
    if (messageFor(code) == text) return code;
  }
  return std::nullopt;
}

// What the system had no more of, from the text or what a program said; or a disk that is full.
ShortageFound shortageOf(const Situation& situation) {
  ShortageFound found = shortageIn(situation.text);
  if (found.kind == Shortage::kNone) found = shortageIn(situation.said);
  if (found.kind != Shortage::kNone) return found;
  const std::string full = fullDisk(situation);
  if (!full.empty()) found = {Shortage::kDiskFull, full};
  return found;
}

std::string_view causeOf(Shortage kind) {
  switch (kind) {
    case Shortage::kDiskFull:
      return "the disk is full";
    case Shortage::kLimit:
      return "a limit of the system";
    case Shortage::kDamagedDisk:
      return "a damaged disk";
    case Shortage::kNone:
      break;
  }
  return "";
}

// The line; empty when there is nothing to add.
std::string explanation(const Situation& situation) {
  const RefusalsPage page(refusalsPageText());
  const auto code = codeOf(situation.text);
  const ShortageFound shortage = shortageOf(situation);
  if (shortage.kind != Shortage::kNone) {
    std::string line = page.explain(situation.text, causeOf(shortage.kind));
    return line.insert(line.find(". What to do:"), fmt::format(" ({})", shortage.words));
  }
  if (code) return page.explain(*code);
  std::string line = page.explain(situation.text, causeOf(situation));
  if (!line.empty()) line += factsAboutCertificate(situation);
  return line;
}

}  // namespace

void explain(const Situation& situation, const Streams& streams) {
  if (!errorIsSeen()) return;
  const std::string line = explanation(situation);
  if (!line.empty()) streams.error("Why: " + line + "\n");
}

void explainLackOfMemory() {
  if (!errorIsSeen()) return;
  const RefusalsPage page(refusalsPageText());
  static const std::string text = fmt::format("{}Why: {}\n", toolkit::kOutOfMemory,
                                              page.explain(trimmed(toolkit::kOutOfMemory), ""));
  setLastWords({.text = text.c_str(), .status = toolkit::kExitConversionFailed});
}

void explainWarnings(const ErrorText& warnings, const Streams& streams) {
  if (!warnings.isSet() && warnings.mentioned().empty()) return;
  if (!errorIsSeen()) return;
  const RefusalsPage page(refusalsPageText());
  std::vector<std::string> texts = warnings.mentioned();
  if (warnings.isSet()) texts.push_back(warnings.text());
  std::vector<std::string> told;
  for (const std::string& text : texts) {
    const std::string line = page.explain(text, "the package was made");
    if (line.empty() || std::ranges::count(told, line) != 0) continue;
    streams.error("Warning: " + line + "\n");
    told.push_back(line);
  }
}

}  // namespace tovrek
