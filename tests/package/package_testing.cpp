#include "tests/package/package_testing.h"

#include <gtest/gtest.h>

#include "host/files.h"
#include "host/process.h"

namespace tovrek::test {

LogCapture::LogCapture() : logger_("ManifestLib", folder_.write("log", "")) {
  logger_.setLogFileWriteLevel(4);
  logger_.setLogDisplayLevel(0);
}

std::string LogCapture::text() const {
  return contentsOf(folder_.file("log"));
}

void zipFolder(const std::string& folder, const std::string& archive,
               const std::vector<std::string>& items) {
  Command command;
  command.argv = {"/usr/bin/zip", "-qry", archive};
  command.argv.insert(command.argv.end(), items.begin(), items.end());
  command.workingDirectory = folder;
  Outcome outcome;
  ASSERT_TRUE(runProcess(command, &outcome));
  ASSERT_EQ(outcome.status, 0) << outcome.output;
}

PlistDictionary basicInfoPlist() {
  PlistDictionary info;
  info.set("CFBundleIdentifier", "com.example.demo");
  info.set("CFBundleName", "Demo");
  info.set("CFBundleExecutable", "Demo");
  info.set("CFBundleShortVersionString", "2.1");
  return info;
}

void writeInfoPlist(const std::string& bundlePath, const PlistDictionary& info) {
  ASSERT_TRUE(createDirectories(bundlePath));
  ASSERT_TRUE(writePlist(bundlePath + "/Info.plist", info, PlistFormat::kXml));
}

}  // namespace tovrek::test
