#include "host/paths.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace tovrek {
namespace {

char lowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path;
}

// The home folder of `user`, or of the caller for an empty name; empty when unknown.
std::string homeFolder(const std::string& user) {
  if (user.empty()) {
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') return home;
  }
  const passwd* entry = user.empty() ? getpwuid(getuid()) : getpwnam(user.c_str());
  return entry != nullptr && entry->pw_dir != nullptr ? entry->pw_dir : "";
}

std::string expandTilde(std::string_view path) {
  if (path.empty() || path.front() != '~') return std::string(path);
  const size_t end = std::min(path.find('/'), path.size());
  const std::string home = homeFolder(std::string(path.substr(1, end - 1)));
  return home.empty() ? std::string(path) : home + std::string(path.substr(end));
}

// Where the extension's "." stands in a last component; npos when there is no extension.
size_t extensionDot(std::string_view component) {
  const size_t dot = component.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || dot + 1 == component.size()) {
    return std::string_view::npos;
  }
  return dot;
}

}  // namespace

std::string standardizePath(std::string_view path) {
  const std::string expanded = expandTilde(path);
  if (expanded.empty()) return expanded;
  const bool absolute = expanded.front() == '/';
  std::vector<std::string> parts;
  for (size_t at = 0; at <= expanded.size();) {
    const size_t end = std::min(expanded.find('/', at), expanded.size());
    std::string part = expanded.substr(at, end - at);
    at = end + 1;
    if (part.empty() || part == ".") continue;
    if (part == ".." && absolute) {
      if (!parts.empty()) parts.pop_back();
      continue;
    }
    parts.push_back(std::move(part));
  }
  std::string result = absolute ? "/" : "";
  for (size_t i = 0; i < parts.size(); ++i) result += (i == 0 ? "" : "/") + parts[i];
  return result.empty() ? "." : result;
}

std::string lastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  if (path == "/") return "/";
  const size_t slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string deletingLastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return "";
  return std::string(slash == 0 ? path.substr(0, 1)
                                : withoutTrailingSlashes(path.substr(0, slash)));
}

std::string containingFolder(std::string_view path) {
  std::string folder = deletingLastPathComponent(path);
  return folder.empty() ? "." : folder;
}

std::string pathExtension(std::string_view path) {
  const std::string name = lastPathComponent(path);
  const size_t dot = extensionDot(name);
  return dot == std::string::npos ? "" : name.substr(dot + 1);
}

std::string deletingPathExtension(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const std::string extension = pathExtension(path);
  if (!extension.empty()) path.remove_suffix(extension.size() + 1);
  return std::string(path);
}

std::string joinPath(std::string_view base, std::string_view component) {
  if (base.empty()) return std::string(component);
  if (component.empty()) return std::string(base);
  while (!base.empty() && base.back() == '/') base.remove_suffix(1);
  while (!component.empty() && component.front() == '/') component.remove_prefix(1);
  return std::string(base) + "/" + std::string(component);
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lowerAscii(x) == lowerAscii(y); });
}

std::string toLowerAscii(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), lowerAscii);
  return lower;
}

bool containsIgnoringCase(std::string_view text, std::string_view part) {
  return toLowerAscii(text).find(toLowerAscii(part)) != std::string::npos;
}

namespace {

// White space beyond ASCII, as UTF-8: no-break and figure spaces, the em and en family, line and
// paragraph separators, the ideographic blank and the like.
constexpr std::string_view kWideBlanks[] = {
    "\xC2\x85",     "\xC2\xA0",     "\xE1\x9A\x80", "\xE2\x80\x80", "\xE2\x80\x81",
    "\xE2\x80\x82", "\xE2\x80\x83", "\xE2\x80\x84", "\xE2\x80\x85", "\xE2\x80\x86",
    "\xE2\x80\x87", "\xE2\x80\x88", "\xE2\x80\x89", "\xE2\x80\x8A", "\xE2\x80\xA8",
    "\xE2\x80\xA9", "\xE2\x80\xAF", "\xE2\x81\x9F", "\xE3\x80\x80"};

bool isBlank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

// The length of the blank at the start or the end of `text`; 0 when there is none.
size_t blankLength(std::string_view text, bool atEnd) {
  if (text.empty()) return 0;
  if (isBlank(atEnd ? text.back() : text.front())) return 1;
  for (const std::string_view blank : kWideBlanks) {
    if (atEnd ? text.ends_with(blank) : text.starts_with(blank)) return blank.size();
  }
  return 0;
}

}  // namespace

std::string trimmed(std::string_view text) {
  while (const size_t length = blankLength(text, false)) text.remove_prefix(length);
  while (const size_t length = blankLength(text, true)) text.remove_suffix(length);
  return std::string(text);
}

}  // namespace tovrek
