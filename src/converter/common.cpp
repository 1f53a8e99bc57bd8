#include "converter/common.h"

#include <fmt/format.h>

#include "host/files.h"
#include "host/paths.h"
#include "host/printable.h"

namespace tovrek::converter {

std::string shown(const std::optional<std::string>& value) {
  return value.value_or("(null)");
}

bool isEmpty(const std::optional<std::string>& value) {
  return !value || value->empty();
}

std::string escapeExecutableString(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '\\' || c == '"' || c == '$' || c == '`' || c == '\'') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

bool failMissingFile(ErrorText* error, std::string_view path) {
  return fail(error,
              fmt::format("A required file at this location does not exist: {}", printable(path)));
}

bool failToCopy(const std::string& from, const std::string& to, const ErrorText& reason,
                ErrorText* error) {
  return fail(error, fmt::format("Failed to copy file from {} to {}. Error:{}", printable(from),
                                 printable(to), reason.text()));
}

bool failToRemove(const ErrorText& reason, ErrorText* error) {
  return fail(error, fmt::format("Failed to remove _CodeSignature. Error:{}", reason.text()));
}

bool copyOrFail(const std::string& from, const std::string& to, ErrorText* error) {
  ErrorText reason;
  return copyItem(from, to, &reason) || failToCopy(from, to, reason, error);
}

bool deliverOrFail(const std::string& from, const std::string& to, Source source,
                   ErrorText* error) {
  ErrorText reason;
  return deliverFile(from, to, source, &reason) || failToCopy(from, to, reason, error);
}

bool replaceByCopy(const std::string& from, const std::string& to, ErrorText* error) {
  if (itemExistsNoFollow(to)) removeItem(to);
  return copyOrFail(from, to, error);
}

namespace {

bool isBelow(std::string_view path, std::string_view folder) {
  if (!path.starts_with(folder)) return false;
  return path.size() == folder.size() || folder.ends_with('/') || path[folder.size()] == '/';
}

}  // namespace

bool liesInside(const std::string& path, const std::string& folder) {
  const auto realItem = realPath(path);
  const auto realFolder = realPath(folder);
  return realItem && realFolder && isBelow(*realItem, *realFolder);
}

}  // namespace tovrek::converter
