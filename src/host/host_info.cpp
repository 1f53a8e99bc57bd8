#include "host/host_info.h"

#include <fmt/format.h>
#include <pwd.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <utility>
#include <vector>

#include "host/file_io.h"
#include "host/files.h"
#include "host/paths.h"
#include "host/platform.h"

namespace tovrek {

namespace {

struct OwnPlace {
  explicit OwnPlace(std::string file)
      : path(std::move(file)), folder(deletingLastPathComponent(path)) {}
  std::string path, folder;
};

// Found out once: it is asked for with every path of the host root.
OwnPlace& ownPlace() {
  static OwnPlace place([] {
    const std::string started = startedPath();
    return started.empty() ? "" : realPath(started).value_or("");
  }());
  return place;
}

}  // namespace

const std::string& programPath() {
  return ownPlace().path;
}

const std::string& programFolder() {
  return ownPlace().folder;
}

void setProgramPath(const std::string& path) {
  ownPlace() = OwnPlace(path);
}

std::optional<std::string> systemTemporaryFolder(ErrorText* error) {
  if (const char* named = std::getenv("TMPDIR");
      named != nullptr && named[0] == '/' && isDirectory(named)) {
    return standardizePath(named);
  }
  // Somebody else may have made one first, to read or change what is put into it, or to be in the
  // way; in the user's own folder nobody can.
  std::vector<std::string> folders = {fmt::format("/tmp/tovrek-{}", userId()),
                                      fmt::format("/var/tmp/tovrek-{}", userId())};
  if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/') {
    folders.push_back(standardizePath(home) + "/.tovrek-tmp");
  }
  int failure = 0;
  for (const std::string& folder : folders) {
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST && failure == 0) failure = errno;
    if (isPrivateDirectory(folder)) return folder;
  }
  errno = failure;
  failure != 0 ? failWithErrno(error)
               : fail(error, fmt::format("{} is not a private folder of this user", folders[0]));
  return std::nullopt;
}

std::string uniqueString() {
  std::array<unsigned char, 16> bytes{};
  if (::getentropy(bytes.data(), bytes.size()) != 0) std::abort();
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40);  // version 4
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80);  // variant of RFC 4122
  std::string text;
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += fmt::format("{:02X}", bytes[i]);
  }
  return text;
}

uint32_t userId() {
  return ::geteuid();
}

int processId() {
  return ::getpid();
}

std::string userName() {
  const passwd* entry = ::getpwuid(::getuid());
  // A table of users that could not be read for a moment looks like one without this user.
  if (entry == nullptr) entry = ::getpwuid(::getuid());
  if (entry != nullptr) return entry->pw_name;
  const char* user = std::getenv("USER");
  return user != nullptr && *user != '\0' ? user : fmt::format("{}", ::getuid());
}

std::string machineName() {
  std::string info;
  if (readFile("/etc/machine-info", &info)) {
    constexpr std::string_view kKey = "PRETTY_HOSTNAME=";
    for (size_t at = 0; at < info.size();) {
      const size_t end = std::min(info.find('\n', at), info.size());
      std::string line = info.substr(at, end - at);
      at = end + 1;
      if (!line.starts_with(kKey)) continue;
      line.erase(0, kKey.size());
      if (line.size() >= 2 && line.front() == '"' && line.back() == '"') {
        line = line.substr(1, line.size() - 2);
      }
      if (!line.empty()) return line;
    }
  }
  std::array<char, 256> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? std::string(name.data()) : "localhost";
}

}  // namespace tovrek
