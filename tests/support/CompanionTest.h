// Runs the built companions as a user's script would.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "host/process.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek::test {

// Each test has a home of its own, so that no keychain of the host takes part. The companions
// stand first in PATH, where they could find themselves instead of the programs they call.
class CompanionTest : public testing::Test {
 protected:
  static std::string hostRoot() { return std::string(TOVREK_BUILT_FOLDER) + "/host"; }
  static std::string companion(const std::string& name) { return hostRoot() + "/usr/bin/" + name; }

  // A program in a host root of the test's own, which then is the current one.
  void script(const std::string& name, const std::string& text) {
    const std::string path = folder_.write("root/usr/bin/" + name, "#!/bin/sh\n" + text);
    ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
    ASSERT_EQ(::setenv("TOVREK_HOST_ROOT", folder_.file("root").c_str(), 1), 0);
  }

  // Runs the companion words[0] and keeps what it printed apart.
  Outcome run(std::vector<std::string> words, const std::string& input = "") {
    Command command;
    words.front() = companion(words.front());
    command.argv = words;
    command.input = input;
    command.standardError = StandardError::kCapture;
    command.workingDirectory = folder_.path();
    Outcome outcome;
    ErrorText error;
    EXPECT_TRUE(runProcess(command, &outcome, &error)) << error.text();
    EXPECT_FALSE(outcome.signalled);
    return outcome;
  }

  // Runs it and expects exactly this.
  void expectRun(const std::vector<std::string>& words, int status, const std::string& output,
                 const std::string& errorOutput = "") {
    SCOPED_TRACE(testing::PrintToString(words));
    const Outcome outcome = run(words);
    EXPECT_EQ(outcome.status, status);
    EXPECT_EQ(outcome.output, output);
    EXPECT_EQ(outcome.errorOutput, errorOutput);
  }

  TemporaryFolder folder_;
  ScopedEnvironment home_{"HOME", folder_.file("home")};
  ScopedEnvironment data_{"XDG_DATA_HOME", ""};
  ScopedEnvironment run_{"XDG_RUNTIME_DIR", folder_.path()};
  ScopedEnvironment root_{"TOVREK_HOST_ROOT", hostRoot()};
};

}  // namespace tovrek::test
