#include "host/program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <new>
#include <stdexcept>

#include "host/files.h"
#include "host/process.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek {
namespace {

std::string given;

int takeDown(const Arguments& arguments, const Streams&) {
  given = arguments.program;
  for (const std::string& word : arguments.words) given += "|" + word;
  if (given.ends_with("text")) throw std::runtime_error("because");
  if (given.ends_with("none")) throw 1;
  return 7;
}

int lastResort(const char* reason, const Streams&) {
  given = reason == nullptr ? "unknown" : reason;
  return 9;
}

TEST(Program, TakesTheCommandLineApartAndAnswersForExceptions) {
  const struct {
    std::vector<std::string> line;
    int status;
    std::string given;
  } cases[] = {
      {{"a/name", "x", ""}, 7, "a/name|x|"},
      {{"name"}, 7, "name"},
      {{}, 7, ""},
      {{"name", "text"}, 9, "because"},
      {{"name", "none"}, 9, "unknown"},
  };
  for (auto c : cases) {
    std::vector<char*> words;
    for (std::string& word : c.line) words.push_back(word.data());
    words.push_back(nullptr);
    const int status = runProgram(static_cast<int>(c.line.size()), words.data(), takeDown,
                                  {.onUncaught = lastResort});
    EXPECT_EQ(status, c.status) << c.given;
    EXPECT_EQ(given, c.given);
  }
}

int takeAllMemory(const Arguments&, const Streams&) {
  throw std::bad_alloc();
}

TEST(Program, WithoutMemoryEndsWithAText) {
  std::array<char*, 1> words = {nullptr};
  testing::internal::CaptureStderr();
  EXPECT_EQ(runProgram(0, words.data(), takeAllMemory, {}), 71);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "out of memory\n");
}

// The status of a process that prepares itself and is then the program.
int statusOf(const std::function<void()>& prepare, ProgramRun run) {
  const pid_t child = ::fork();
  if (child == 0) {
    prepare();
    char name[] = "name";
    char* words[] = {name, nullptr};
    ::_exit(runProgram(1, words, run));
  }
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status)) << status;
  return WEXITSTATUS(status);
}

// Bit n: stream n can be used as a program uses it, and belongs to no file of the program's own.
int usableStreams(const Arguments&, const Streams&) {
  const int own = ::open("/dev/zero", O_RDWR | O_CLOEXEC);
  char byte = 'x';
  int usable = own > STDERR_FILENO && ::read(STDIN_FILENO, &byte, 1) == 0 ? 1 : 0;
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    if (::write(stream, "", 1) == 1) usable |= 1 << stream;
  }
  return usable;
}

TEST(Program, StreamsThatItWasStartedWithoutAreNoFilesOfItsOwn) {
  for (const std::vector<int>& closed :
       std::vector<std::vector<int>>{{}, {0}, {1}, {2}, {0, 2}, {1, 2}, {0, 1, 2}}) {
    const auto prepare = [&] {
      const int nothing = ::open("/dev/null", O_RDWR);
      for (const int stream : {0, 1, 2}) ::dup2(nothing, stream);
      ::close(nothing);
      for (const int stream : closed) ::close(stream);
    };
    EXPECT_EQ(statusOf(prepare, usableStreams), 7) << testing::PrintToString(closed);
  }
}

std::string grown;

int growFile(const Arguments&, const Streams&) {
  ErrorText reason;
  if (writeFileAtomically(grown, std::string(5000, 'x'), &reason)) return 1;
  if (reason.text() != "File too large") return 2;
  // Programs that know nothing of this one meet the limit as they would anywhere else.
  const Outcome other =
      runQuietly({.argv = {"/bin/sh", "-c", "head -c 5000 /dev/zero >" + grown + ".other"}});
  return other.status == 128 + SIGXFSZ || other.signalled ? 0 : 3;
}

TEST(Program, LimitOnTheSizeOfFilesIsAnErrorToReport) {
  const test::TemporaryFolder folder;
  grown = folder.write("grown", "old");
  const auto prepare = [] {
    const rlimit limit{1000, 1000};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  };
  EXPECT_EQ(statusOf(prepare, growFile), 0);
  EXPECT_EQ(test::contentsOf(grown), "old");
}

}  // namespace
}  // namespace tovrek
