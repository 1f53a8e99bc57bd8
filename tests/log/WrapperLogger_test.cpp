#include "log/WrapperLogger.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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
  logger.logError("first {} %s\nsecond\r line", LineBreaks::kKept);
  logger.logWarning("a name\nof two lines\n");
  const std::string log = contentsOf(folder.file("new.log"));
  EXPECT_NE(log.find("first {} %s\nsecond\\x0d line\n"), std::string::npos) << log;
  EXPECT_NE(log.find("[M] a name\\x0aof two lines\n\n"), std::string::npos) << log;

  logger.setLogFilename(folder.file("missing/x.log"));
  testing::internal::CaptureStderr();
  logger.logError("lost");
  EXPECT_NE(testing::internal::GetCapturedStderr().find("ERROR: failed to write file at " +
                                                        folder.file("missing/x.log")),
            std::string::npos);
}

// What `logger` says on the console when it writes an entry.
std::string complaintOf(const WrapperLogger& logger) {
  testing::internal::CaptureStderr();
  logger.writeEntryToLogfile("entry");
  return testing::internal::GetCapturedStderr();
}

TEST(WrapperLogger, RefusesWhatIsNoFileOfItsOwn) {
  const TemporaryFolder folder;
  const std::string other = folder.write("other", "kept");
  const std::string link = folder.file("link"), dangling = folder.file("dangling");
  ASSERT_EQ(::symlink(other.c_str(), link.c_str()), 0);
  ASSERT_EQ(::symlink(folder.file("made").c_str(), dangling.c_str()), 0);
  const std::string pipe = folder.file("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  std::vector<std::pair<std::string, std::string>> cases = {
      {link, "Too many levels of symbolic links"},
      {dangling, "Too many levels of symbolic links"},
      {pipe, "No such device or address"},
      {folder.path(), "Is a directory"},
      {"/dev/null", "Not a regular file"}};
  if (::geteuid() == 0) {
    const std::string foreign = folder.write("foreign", "kept");
    ASSERT_EQ(::chown(foreign.c_str(), 4242, 4242), 0);
    cases.emplace_back(foreign, "The file belongs to another user");
  }
  for (const auto& [path, reason] : cases) {
    const std::string complaint = complaintOf(WrapperLogger("M", path));
    EXPECT_NE(complaint.find("failed to write file at " + path + ", error is " + reason + "\n"),
              std::string::npos)
        << complaint;
  }
  EXPECT_EQ(contentsOf(other), "kept");
  EXPECT_NE(::access(folder.file("made").c_str(), F_OK), 0);
}

TEST(WrapperLogger, RunsThatBeginALogAtOnceLoseNoEntry) {
  constexpr int kRuns = 8, kEntries = 20;
  for (int round = 0; round < 10; ++round) {
    const TemporaryFolder folder;
    int gate[2];
    ASSERT_EQ(::pipe(gate), 0);
    for (int i = 0; i < kRuns; ++i) {
      const pid_t run = ::fork();
      ASSERT_GE(run, 0);
      if (run != 0) continue;
      ::close(gate[1]);
      char byte = 0;
      if (::read(gate[0], &byte, 1) != 0) ::_exit(1);  // until all have been started
      const WrapperLogger logger("M", folder.file("log"));
      for (int entry = 0; entry < kEntries; ++entry) logger.writeEntryToLogfile("entry");
      ::_exit(0);
    }
    ::close(gate[0]);
    ::close(gate[1]);
    for (int i = 0; i < kRuns; ++i) {
      int status = 0;
      ASSERT_GT(::wait(&status), 0);
      EXPECT_EQ(status, 0);
    }
    const std::string text = contentsOf(folder.file("log"));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), kRuns * kEntries);
  }
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
