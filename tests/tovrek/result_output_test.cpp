#include "programs/tovrek/result_output.h"

#include <gtest/gtest.h>

#include "log/module_loggers.h"

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
  Global_Commandline_Logger().setLogDisplayLevel(0);
  for (const Case& c : cases) {
    AppConverterParam param;
    param.isUpdate = c.isUpdate;
    param.isSDK = c.isSDK;
    param.packageApp = c.packageApp;
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(writeOutResultWithErrorStr(c.success, c.error, param), c.status);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), c.out);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), c.err);
  }
}

}  // namespace
}  // namespace tovrek
