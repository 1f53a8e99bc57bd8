// What the converter's tests share: a host of scripted programs, a scratch folder with a content
// folder "Data" and an app "Demo.app", and a request to set up.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "converter/Run.h"
#include "host/files.h"
#include "package/AppBundle.h"
#include "tests/support/ScriptedHostRoot.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek::test {

using namespace converter;

class ConverterTest : public ::testing::Test {
 protected:
  ConverterTest() {
    context.loggers.toolkit.setLogDisplayLevel(0);
    context.loggers.manifest.setLogDisplayLevel(0);
    createDirectories(folder.file("Data"));
    write("Demo.app/Info.plist", infoPlist("com.example.demo"));
    write("Demo.app/Demo", "executable");
    request.certificate = "ID";
  }

  converter::Run run() {
    return converter::Run(request, context, progressor, folder.file("Data"), {});
  }
  const WrapperLogger& log() const { return context.loggers.toolkit; }
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
  void useKeychain(const std::string& path) {
    context.keychain.setPellRequestFlag(true);
    context.keychain.setPellKeychainPath(path);
  }

  ScriptedHostRoot host;
  TemporaryFolder folder;
  RunContext context;
  Request request;
  TKProgressor progressor{context.loggers.toolkit};
  ErrorText error;
};

}  // namespace tovrek::test
