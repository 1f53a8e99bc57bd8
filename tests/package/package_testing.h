// What the tests of the package model share: app bundles, archives and captured log lines.
#pragma once

#include <string>
#include <vector>

#include "formats/PlistValue.h"
#include "log/WrapperLogger.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek::test {

// A logger and what it was told, by way of its log file.
class LogCapture {
 public:
  LogCapture();

  WrapperLogger& logger() { return logger_; }
  // Everything so far, at all levels.
  std::string text() const;
  bool holds(const std::string& part) const { return text().find(part) != std::string::npos; }

 private:
  TemporaryFolder folder_;
  WrapperLogger logger_;
};

// Zips `items` of `folder` into `archive` with the host's zip, links as links.
void zipFolder(const std::string& folder, const std::string& archive,
               const std::vector<std::string>& items = {"."});

// An Info.plist with the usual keys, written as XML.
PlistDictionary basicInfoPlist();
void writeInfoPlist(const std::string& bundlePath, const PlistDictionary& info);

}  // namespace tovrek::test
