// What the converter's tests share: a host of scripted programs, a scratch folder with a content
// folder "Data" and an app "Demo.app", and a record to set up.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "context/PellRequest.h"
#include "converter/AppConverter.h"
#include "host/files.h"
#include "log/module_loggers.h"
#include "package/AppBundle.h"
#include "tests/support/ScriptedHostRoot.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek::test {

class ConverterTest : public ::testing::Test {
 protected:
  ConverterTest() {
    Global_TKLib_Logger().setLogDisplayLevel(0);
    Global_ManifestLib_logger().setLogDisplayLevel(0);
    createDirectories(folder.file("Data"));
    write("Demo.app/Info.plist", infoPlist("com.example.demo"));
    write("Demo.app/Demo", "executable");
    param.certificate = "ID";
  }
  ~ConverterTest() override { PellRequest::sharedInstance().setPellRequestFlag(false); }

  AppConverter converter() { return {param, progressor, folder.file("Data")}; }
  std::string write(const std::string& name, const std::string& text) const {
    return folder.write(name, text);
  }
  std::string app() const { return folder.file("Demo.app"); }
  AppBundle bundle() const { return *AppBundle::open(app()); }

  static std::string infoPlist(const std::string& identifier) {
    PlistDictionary info;
    info.set("CFBundleExecutable", "Demo");
    info.set("CFBundleIdentifier", identifier);
    return serializePlist(info, PlistFormat::kXml);
  }
  static void useKeychain(const std::string& path) {
    PellRequest::sharedInstance().setPellRequestFlag(true);
    PellRequest::sharedInstance().setPellKeychainPath(path);
  }

  ScriptedHostRoot host;
  TemporaryFolder folder;
  AppConverterParam param;
  TKProgressor progressor{Global_TKLib_Logger()};
  ErrorText error;
};

}  // namespace tovrek::test
