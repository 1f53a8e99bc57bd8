#include "programs/tovrek/result_output.h"

#include <gtest/gtest.h>

namespace tovrek {
namespace {

TEST(ResultOutput, PrintsByOutcomeAndKind) {
  const std::string text = "some text";
  const std::string created = "\n********Orvane mobile app was created successfully.********\n\n";
  const std::string embedded =
      "Note: Generated a .wex package, embedded with ipa compiled with Telvo SDK framework.";
  const std::string two =
      "Note: Generated two files, a .wex package (for uploading to Nolvara) and a .ipa file (for "
      "uploading to App Store)";
  struct Case {
    bool success;
    const std::string* error;
    bool isUpdate, isSDK, packageApp;
    int status;
    std::string out, err;
  };
  const std::vector<Case> cases = {
      {true, nullptr, false, false, true, 0, created + "Note: Generated a .wex package.\n\n\n\n",
       ""},
      {true, nullptr, true, true, true, 0, created + "\n\n\n\n", ""},
      {true, nullptr, false, true, true, 0, created + embedded + "\n\n\n\n", ""},
      {true, &text, false, true, false, 0, "\nsome text\n\n" + two + "\n\n\n\n", ""},
      {false, &text, false, false, false, -2, "",
       "\n\nsome text\n------------------------------\n"},
      {false, nullptr, false, false, false, -1, "", ""},
  };
  WrapperLogger log("CommandLine", std::nullopt);
  log.setLogDisplayLevel(0);
  for (const Case& c : cases) {
    Request request;
    request.isUpdate = c.isUpdate;
    request.isSDK = c.isSDK;
    request.packageApp = c.packageApp;
    std::string out, err;
    const Streams streams{[&](std::string_view part) { out += part; },
                          [&](std::string_view part) { err += part; }};
    EXPECT_EQ(writeOutResultWithErrorStr(c.success, c.error, request, log, streams), c.status);
    EXPECT_EQ(out, c.out);
    EXPECT_EQ(err, c.err);
  }
}

}  // namespace
}  // namespace tovrek
