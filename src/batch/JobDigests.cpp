#include "batch/JobDigests.h"

#include <fmt/format.h>

#include <cstdlib>
#include <vector>

#include "formats/Digest.h"
#include "host/StdioFile.h"
#include "host/files.h"
#include "host/paths.h"
#include "host/version.h"

namespace tovrek::batch {
namespace {

// Each part with its length, so that no two lists of parts come to the same bytes.
void add(Digest* digest, std::string_view part) {
  digest->update(fmt::format("{}:", part.size()));
  digest->update(part);
}

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

// What is put into apps: all files below the folder, which a program without it does not have.
bool addFolder(const std::string& folder, Digest* digest, ErrorText* error) {
  std::vector<std::string> files;
  const auto take = [&](const WalkedItem& item) {
    if (item.kind == ItemKind::kFile) files.push_back(item.relativePath);
    return true;
  };
  if (!walkDirectoryIfThere(folder, take, error)) return false;
  for (const std::string& file : files) {
    const auto content = fileDigest(joinPath(folder, file), error);
    if (!content) return false;
    add(digest, file);
    add(digest, *content);
  }
  return true;
}

}  // namespace

std::optional<std::string> fileDigest(const std::string& path, ErrorText* error) {
  Digest digest(DigestAlgorithm::kSha256);
  std::vector<char> room(1 << 18);
  const bool isRead = readInPieces(
      path, [&] { return std::span<char>(room); },
      [&](size_t size) { digest.update(std::string_view(room.data(), size)); }, error);
  return isRead ? std::optional(hexLower(digest.finish())) : std::nullopt;
}

std::optional<std::string> JobDigests::ofProgram(ErrorText* error) {
  const std::lock_guard lock(mutex_);
  if (program_) return program_;
  Digest digest(DigestAlgorithm::kSha256);
  add(&digest, kToolVersion);
  add(&digest, kToolBuild);
  // A program that was built anew says the same version as before.
  const auto program = fileDigest(joinPath(programFolder_, "Tovrek"), error);
  if (!program || !addFolder(joinPath(programFolder_, "Data"), &digest, error)) return std::nullopt;
  add(&digest, *program);
  const std::string named = variable("TOVREK_CONF");
  const std::string settings = named.empty() ? joinPath(programFolder_, "tovrek.conf") : named;
  std::string content;
  readFile(settings, &content);  // without one the built-in rules hold
  add(&digest, content);
  add(&digest, variable("TOVREK_PROFILES"));
  program_ = hexLower(digest.finish());
  return program_;
}

std::optional<std::string> JobDigests::ofShared(const std::string& path, ErrorText* error) {
  const std::lock_guard lock(mutex_);
  const auto known = shared_.find(path);
  if (known != shared_.end()) return known->second;
  auto digest = fileDigest(path, error);
  if (digest) shared_.emplace(path, *digest);
  return digest;
}

std::optional<std::string> JobDigests::of(const Job& job, ErrorText* error) {
  const auto program = ofProgram(error);
  if (!program) return std::nullopt;
  Digest digest(DigestAlgorithm::kSha256);
  add(&digest, *program);
  add(&digest, nameOf(job.command));
  for (const JobOption& option : job.options) {
    const bool isInput = option.column->kind == ColumnKind::kInput;
    add(&digest, option.column->name);
    add(&digest, option.column->isPath() ? lastPathComponent(option.value) : option.value);
    if (!isInput) continue;
    // The app is this row's own; policies and profiles come in many.
    const bool isApp = std::string_view(option.column->name) == "in";
    const auto content = isApp ? fileDigest(option.value, error) : ofShared(option.value, error);
    if (!content) return std::nullopt;
    add(&digest, *content);
  }
  return hexLower(digest.finish());
}

}  // namespace tovrek::batch
