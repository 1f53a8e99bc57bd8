#include "tests/support/SoftToken.h"

#include <gtest/gtest.h>

#include "host/files.h"
#include "host/process.h"

namespace tovrek::test {

namespace {

void softhsm(std::vector<std::string> words) {
  words.insert(words.begin(), "softhsm2-util");
  Command command;
  command.argv = std::move(words);
  command.standardError = StandardError::kMergeIntoOutput;
  Outcome outcome;
  ErrorText error;
  EXPECT_TRUE(runProcess(command, &outcome, &error)) << error.text();
  EXPECT_EQ(outcome.status, 0) << outcome.output;
}

std::string configurationIn(const TemporaryFolder& folder) {
  createDirectories(folder.file("tokens"));
  return folder.write("softhsm2.conf", "directories.tokendir = " + folder.file("tokens") + "\n");
}

}  // namespace

SoftToken::SoftToken(const TemporaryFolder& folder)
    : configuration_("SOFTHSM2_CONF", configurationIn(folder)) {
  softhsm({"--init-token", "--free", "--label", "build", "--pin", "1234", "--so-pin", "123456"});
}

void SoftToken::add(const std::string& keyFile, const std::string& label) {
  softhsm({"--import", keyFile, "--token", "build", "--label", label, "--id",
           "0" + std::to_string(++keys_), "--pin", "1234"});
}

std::string SoftToken::uri(const std::string& path, const std::string& query) {
  return "pkcs11:" + path + "?module-path=" + kModule + (query.empty() ? "" : "&" + query);
}

}  // namespace tovrek::test
