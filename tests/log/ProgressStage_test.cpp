#include "log/ProgressStage.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <array>
#include <thread>

#include "host/Streams.h"
#include "host/disk_space.h"
#include "host/unique_fd.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek {
namespace {

TEST(ProgressLine, SaysWhatHasRoomAndIsKnown) {
  const struct {
    Progress progress;
    double seconds;
    size_t width;
    std::string line;
  } cases[] = {
      {{0, 100'000'000}, 0.5, 50, "Packing  [................................]    0 %"},
      {{50'000'000, 100'000'000},
       2,
       79,
       "Packing  [####################....................]   50 %  25 MB/s  0:02 left"},
      {{25'000'000, 100'000'000},
       100,
       55,
       "Packing  [####..............]   25 %  0 MB/s  5:00 left"},
      {{25'000'000, 100'000'000}, 100, 40, "Packing   25 %  0 MB/s  5:00 left"},
      {{25'000'000, 100'000'000}, 100, 10, "Packing   "},
      {{1, 100'000'000}, 100, 60, "Packing  [..................................]    0 %  0 MB/s"},
      {{3'000'000, 0}, 1, 60, "Packing  3 MB  3 MB/s"},
      {{200, 100}, 1, 60, "Packing  [#######################]  100 %  0 MB/s  0:00 left"},
      {{UINT64_MAX, 1}, 1, 20, "Packing  100 %  1844"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(progressLine("Packing", c.progress, c.seconds, c.width), c.line);
  }
}

// Standard error on a terminal of its own.
class AtTerminal {
 public:
  AtTerminal() : kind_("TERM", "xterm"), before_(::dup(STDERR_FILENO)) {
    int controller = -1, terminal = -1;
    EXPECT_EQ(::openpty(&controller, &terminal, nullptr, nullptr, nullptr), 0);
    controller_ = UniqueFd(controller);
    ::fcntl(controller, F_SETFL, O_NONBLOCK);
    ::dup2(terminal, STDERR_FILENO);
    ::close(terminal);
  }
  ~AtTerminal() { ::dup2(before_.get(), STDERR_FILENO); }

  std::string written() const {
    std::array<char, 1000> text;
    const ssize_t got = ::read(controller_.get(), text.data(), text.size());
    return got <= 0 ? "" : std::string(text.data(), static_cast<size_t>(got));
  }

 private:
  test::ScopedEnvironment kind_;
  UniqueFd before_, controller_;
};

TEST(ProgressStage, ShowsALongStageUntilSomethingElseIsPrinted) {
  const AtTerminal terminal;
  const test::TemporaryFolder folder;
  folder.write("a/b", std::string(600, 'x'));
  folder.write("c", std::string(400, 'x'));
  const auto wait = [] { std::this_thread::sleep_for(std::chrono::milliseconds(550)); };
  {
    ProgressStage stage(true, "Checksums", [&] { return bytesBelow(folder.path()); });
    stage.add(100);
    EXPECT_EQ(terminal.written(), "") << "too early";
    wait();
    stage.add(150);
    const std::string line = terminal.written();
    EXPECT_TRUE(line.starts_with("\rChecksums  [####") && line.ends_with("\x1b[K")) << line;
    EXPECT_NE(line.find(".]   25 %  "), std::string::npos) << line;
    printError("text\n");
    EXPECT_EQ(terminal.written(), "\r\x1b[Ktext\r\n");
    wait();
    // What a child has done stays done.
    stage.partReports()({250, 0});
    EXPECT_NE(terminal.written().find("   50 %"), std::string::npos);
    stage.endPart();
    EXPECT_EQ(terminal.written(), "\r\x1b[K");
    wait();
    stage.partReports()({250, 0});
    EXPECT_NE(terminal.written().find("   75 %"), std::string::npos);
  }
  EXPECT_EQ(terminal.written(), "\r\x1b[K");
  {
    ProgressStage unseen(false, "Checksums");
    wait();
    unseen.add(1);
    EXPECT_FALSE(unseen.partReports());
  }
  EXPECT_EQ(terminal.written(), "");
}

}  // namespace
}  // namespace tovrek
