// Whole conversions, as far as they need no rewriting of executables. zip and unzip are the real
// ones; what the host lacks is scripted.
#pragma once

#include <unistd.h>

#include <string>
#include <vector>

#include "converter/AppConverter.h"
#include "host/clock.h"
#include "host/paths.h"
#include "host/process.h"
#include "tests/converter/ConverterTest.h"

namespace tovrek::test {

class RecordedProgress : public TKProgressor {
 public:
  using TKProgressor::TKProgressor;
  void SetProgress(std::string_view stage) override { stages.emplace_back(stage); }
  std::vector<std::string> stages;
};

// Set up for signing "Demo.ipa" anew.
class FlowTest : public ConverterTest {
 protected:
  FlowTest() {
    host.addTool("codesign", "case $1 in -d) exit 1;; *) echo TeamIdentifier=T >&2;; esac");
    host.addTool("otool", "echo cryptid 0");
    host.addTool("nm");
    host.addTool("openssl", "echo /OU=T");
    write("Data/ResourceRules.plist", "rules");
    request.inputFile = folder.file("Demo.ipa");
    request.outputFile = folder.file("out.ipa");
    request.provisionProfile = write("demo.mobileprovision", "signed profile");
    request.isResign = true;
    profileExpires(currentTime() + 86400);
    createDirectories(folder.file("Payload"));
    moveItem(app(), folder.file("Payload/Demo.app"));
  }
  void profileExpires(double when) {
    PlistDictionary entitlements, profile;
    entitlements.set("application-identifier", "TEAMAAAAAA.*");
    entitlements.set("com.apple.developer.team-identifier", "TEAMAAAAAA");
    profile.set("Entitlements", entitlements);
    profile.set("ExpirationDate", PlistValue::Date{when});
    const std::string path = write("profile.plist", serializePlist(profile, PlistFormat::kXml));
    host.addTool("security", "case $1 in cms) cat " + quotedForShell(path) + ";; esac");
  }
  // Writes into the app that is going to be zipped.
  void inApp(const std::string& name, const std::string& text) {
    write("Payload/Demo.app/" + name, text);
  }
  void link(const std::string& target, const std::string& name) {
    createDirectories(containingFolder(folder.file(name)));
    ASSERT_EQ(::symlink(target.c_str(), folder.file(name).c_str()), 0);
  }
  void zip(const std::string& archive, const std::vector<std::string>& items) {
    Outcome zipped;
    Command command{.argv = {"/usr/bin/zip", "-qry", archive}};
    command.argv.insert(command.argv.end(), items.begin(), items.end());
    command.workingDirectory = folder.path();
    EXPECT_TRUE(runProcess(command, &zipped) && zipped.status == 0);
  }
  bool create(const std::vector<std::string>& items = {"Payload"}) {
    zip(*request.inputFile, items);
    host.forgetCalls();
    progress.stages.clear();
    error.clear();
    const bool result = converter().CreatePackage(&error);
    scratch = scratchFolder();
    return result;
  }
  std::string inOutput(const std::string& name) {
    Outcome outcome;
    runProcess({.argv = {"/usr/bin/unzip", "-p", *request.outputFile, name}}, &outcome);
    return outcome.output;
  }

  // Below which the run has worked, by the command lines of its children.
  std::string scratchFolder() {
    for (const std::string& call : host.allCalls()) {
      const size_t end = call.find("/Payload/Demo.app");
      if (end == std::string::npos) continue;
      const size_t start = call.rfind('|', end) + 1;
      return call.substr(start, end - start);
    }
    return {};
  }
  AppConverter converter() { return {request, context, progress, folder.file("Data")}; }

  RecordedProgress progress{context.loggers.toolkit};
  std::string scratch;
};

}  // namespace tovrek::test
