#include "programs/codesign/requirement_source.h"

#include <iostream>
#include <iterator>

#include "host/files.h"
#include "signing/RequirementParser.h"
#include "signing/SuperBlob.h"

namespace tovrek::codesign {
namespace {

// The bytes of the argument, and how to call them in an error.
struct Source {
  std::string bytes;
  std::string name;  // empty for text on the command line
};

std::optional<Source> readSource(const std::string& argument, ErrorText* error) {
  if (argument.starts_with("=")) return Source{argument.substr(1), ""};
  if (argument == "-") {
    return Source{std::string(std::istreambuf_iterator<char>(std::cin), {}), "standard input"};
  }
  Source source{"", argument};
  ErrorText reason;
  if (readFile(argument, &source.bytes, &reason)) return source;
  fail(error, argument + ": " + reason.text());
  return std::nullopt;
}

// The wording, and the exit status 1 that follows, are unverified.
std::nullopt_t refuse(const Source& source, const std::string& reason, ErrorText* error) {
  fail(error, source.name.empty() ? reason : source.name + ": " + reason);
  return std::nullopt;
}

// Compiled forms start with a byte that no text starts with.
bool isCompiled(const std::string& bytes) {
  return bytes.starts_with('\xfa');
}

// The whole of a blob that fills the bytes.
bool isBlobOf(const std::string& bytes, uint32_t magic) {
  const auto blob = signing::blobAt(bytes, 0);
  return blob && blob->size() == bytes.size() && signing::magicOf(*blob) == magic;
}

bool isGoodSet(const std::string& bytes) {
  const auto index = isBlobOf(bytes, signing::kRequirementSetMagic)
                         ? signing::SuperBlob::parse(bytes, signing::kRequirementSetMagic)
                         : std::nullopt;
  if (!index) return false;
  for (const auto& entry : index->entries()) {
    if (!signing::RequirementExpression::parse(entry.blob)) return false;
  }
  return true;
}

}  // namespace

std::optional<std::string> readRequirement(const std::string& argument, ErrorText* error) {
  const auto source = readSource(argument, error);
  if (!source) return std::nullopt;
  if (isCompiled(source->bytes)) {
    if (signing::RequirementExpression::parse(source->bytes)) return source->bytes;
    return refuse(*source, "not a compiled requirement", error);
  }
  ErrorText reason;
  const auto expression = signing::parseRequirement(source->bytes, &reason);
  if (!expression) return refuse(*source, reason.text(), error);
  return expression->blob();
}

std::optional<std::string> readRequirementSet(const std::string& argument, ErrorText* error) {
  const auto source = readSource(argument, error);
  if (!source) return std::nullopt;
  if (isCompiled(source->bytes)) {
    if (isGoodSet(source->bytes)) return source->bytes;
    return refuse(*source, "not a compiled requirement set", error);
  }
  ErrorText reason;
  const auto requirements = signing::parseRequirementSet(source->bytes, &reason);
  if (!requirements) return refuse(*source, reason.text(), error);
  return signing::makeSuperBlob(signing::kRequirementSetMagic, *requirements);
}

}  // namespace tovrek::codesign
