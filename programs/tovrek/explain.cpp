#include "programs/tovrek/explain.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "engine/MachORebuildErrors.h"
#include "host/HostRoot.h"
#include "host/disk_space.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "host/process.h"
#include "host/terminal.h"
#include "package/bundle_icons.h"
#include "programs/tovrek/RefusalsPage.h"
#include "programs/tovrek/certificate_cause.h"

namespace tovrek {
namespace {

// A run that finds less than this has most likely ended for that.
constexpr uint64_t kFullDisk = uint64_t{256} << 10;

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
  if (text.find("Mavericks") != std::string_view::npos && HostRoot::folder().empty()) {
    return "no host folder";
  }
  return "";
}

// The folder whose disk is full; empty when none is.
std::string fullDisk(const Situation& situation) {
  std::vector<std::string> folders;
  if (const auto temporary = systemTemporaryFolder()) folders.push_back(*temporary);
  if (situation.request != nullptr && situation.request->outputFile) {
    folders.push_back(containingFolder(*situation.request->outputFile));
  }
  for (const std::string& folder : folders) {
    const auto left = freeSpace(folder);
    if (left && *left < kFullDisk) return folder;
  }
  return "";
}

std::optional<int32_t> codeOf(const std::string& text) {
  for (int32_t code = 1100; !messageFor(code).empty(); ++code) {
    if (messageFor(code) == text) return code;
  }
  return std::nullopt;
}

}  // namespace

std::string explanation(const Situation& situation) {
  const RefusalsPage page(refusalsPageText());
  if (const std::string folder = fullDisk(situation); !folder.empty()) {
    return page.explain(situation.text, "the disk is full") + " (" + folder + ")";
  }
  if (const auto code = codeOf(situation.text)) return page.explain(*code);
  std::string line = page.explain(situation.text, causeOf(situation));
  if (!line.empty()) line += factsAboutCertificate(situation);
  return line;
}

void explain(const Situation& situation, const Streams& streams) {
  if (!errorIsSeen()) return;
  const std::string line = explanation(situation);
  if (!line.empty()) streams.error(line + "\n");
}

}  // namespace tovrek
