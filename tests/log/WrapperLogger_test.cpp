#include "log/WrapperLogger.h"

#include <gtest/gtest.h>

#include <regex>

#include "log/TKProgressor.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek {
namespace {

using test::contentsOf;
using test::TemporaryFolder;

void logOneOfEach(const WrapperLogger& logger) {
  logger.logError("e");
  logger.logWarning("w");
  logger.logBasic("b");
  logger.logDetailed("d");
}

TEST(WrapperLogger, LevelsPassTheirKindsToFileAndConsoleApart) {
  const std::pair<int64_t, std::string> cases[] = {{0, ""},     {1, "e"}, {2, "ew"}, {3, "ewb"},
                                                   {4, "ewbd"}, {5, "e"}, {-1, "e"}};
  const std::regex line(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d \[M\] (.))");
  for (const auto& [level, wanted] : cases) {
    const TemporaryFolder folder;
    WrapperLogger logger("M", folder.write("log", ""));
    logger.setLogFileWriteLevel(level);
    logger.setLogDisplayLevel(0);
    testing::internal::CaptureStderr();
    logOneOfEach(logger);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    const std::string text = contentsOf(folder.file("log"));
    std::string kinds;
    for (std::sregex_iterator at(text.begin(), text.end(), line), end; at != end; ++at) {
      kinds += (*at)[1];
    }
    EXPECT_EQ(kinds, wanted) << "level " << level;
  }
}

TEST(WrapperLogger, ConsoleLineHasStampProcessAndModule) {
  WrapperLogger logger("M", std::nullopt);
  testing::internal::CaptureStderr();
  logOneOfEach(logger);
  const std::string text = testing::internal::GetCapturedStderr();
  const std::regex wanted(
      R"(\S+ \d\d:\d\d:\d\d\.\d{3} Tovrek\[\d+\] \[M\] e\n\S+ \S+ Tovrek\[\d+\] \[M\] w\n)");
  EXPECT_TRUE(std::regex_match(text, wanted)) << text;
}

TEST(WrapperLogger, MakesTheFileButNotItsFolder) {
  const TemporaryFolder folder;
  WrapperLogger logger("M", folder.file("new.log"));
  logger.setLogDisplayLevel(0);
  logger.logError("first {} %s\nsecond line");
  EXPECT_NE(contentsOf(folder.file("new.log")).find("first {} %s\nsecond line\n"),
            std::string::npos);

  logger.setLogFilename(folder.file("missing/x.log"));
  testing::internal::CaptureStderr();
  logger.logError("lost");
  EXPECT_NE(testing::internal::GetCapturedStderr().find("ERROR: failed to write file at " +
                                                        folder.file("missing/x.log")),
            std::string::npos);
}

TEST(CLProgressor, PrintsTheBannerAtAnyLevel) {
  WrapperLogger logger("M", std::nullopt);
  logger.setLogDisplayLevel(0);
  CLProgressor progressor(logger);
  testing::internal::CaptureStdout();
  progressor.SetProgress("Unzipping...");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\n\nUnzipping......\n------------------------------\n");
}

}  // namespace
}  // namespace tovrek
