#include "host/program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <new>
#include <stdexcept>

#include "host/AtomicFile.h"
#include "host/allocation.h"
#include "host/files.h"
#include "host/parallel.h"
#include "host/process.h"
#include "host/signals.h"
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

// The status of a process that prepares itself and is then the program.
int statusOf(const std::function<void()>& prepare, ProgramRun run, const ProgramRules& rules = {}) {
  const pid_t child = ::fork();
  if (child == 0) {
    prepare();
    char name[] = "name";
    char* words[] = {name, nullptr};
    ::_exit(runProgram(1, words, run, rules));
  }
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status)) << status;
  return WEXITSTATUS(status);
}

// More than there can be.
constexpr size_t kTooMuch = PTRDIFF_MAX;

void* volatile taken = nullptr;
void takeAsLibrary() {
  const volatile size_t size = kTooMuch;
  taken = std::malloc(size);
}
void takeAsOurs() {
  throw std::bad_alloc();
}
void takeInHelper() {
  forEachPart(64, 1, [](size_t, size_t) { takeAsOurs(); });
}
void takeInHelperAlone() {
  Helper(takeAsLibrary).join();
}
void takeWithFileAtWork() {
  AtomicFile file;
  if (file.open(std::getenv("TOVREK_TEST_FILE"))) takeAsLibrary();
}
void takeWithItem() {
  const RemovedOnSignal item(std::getenv("TOVREK_TEST_FILE"));
  if (writeFileAtomically(std::getenv("TOVREK_TEST_FILE"), "text")) takeAsOurs();
}

void (*take)() = nullptr;
int takeAllMemory(const Arguments&, const Streams&) {
  take();
  return 0;
}

// By whom ever it is wanted: the program ends, says so, and leaves nothing.
TEST(Program, WithoutMemoryEndsWithATextAndLeavesNothing) {
  const test::TemporaryFolder folder;
  ::setenv("TOVREK_TEST_FILE", (folder.path() + "/file").c_str(), 1);
  std::vector<void (*)()> takers = {takeAsOurs, takeInHelper, takeWithItem};
  if (kWatchesAllocations) {
    takers.insert(takers.end(), {takeAsLibrary, takeInHelperAlone, takeWithFileAtWork});
  }
  for (size_t i = 0; i < takers.size(); ++i) {
    take = takers[i];
    const std::string said = folder.path() + "/said";
    const auto listen = [&] { ::dup2(::open(said.c_str(), O_CREAT | O_TRUNC | O_RDWR, 0600), 2); };
    EXPECT_EQ(statusOf(listen, takeAllMemory, {.cleansUpOnSignals = true}), 71) << i;
    std::string text;
    EXPECT_TRUE(readFile(said, &text));
    EXPECT_EQ(text, "out of memory\n") << i;
    EXPECT_EQ(listDirectory(folder.path()), std::vector<std::string>{"said"}) << i;
  }
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
