#include "host/process.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "host/HostRoot.h"
#include "host/clock.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/shell_line.h"
#include "host/signals.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek {
namespace {

using test::ScopedEnvironment;
using test::TemporaryFolder;

Outcome run(const Command& command) {
  Outcome outcome;
  ErrorText error;
  EXPECT_TRUE(runProcess(command, &outcome, &error)) << error.text();
  return outcome;
}

Command shell(const std::string& text) {
  return {.argv = {"/bin/sh", "-c", text}};
}

TEST(Process, KeepsOutputsApartAndReadsThemWhole) {
  Command command = shell("head -c 1000000 /dev/zero; head -c 1000000 /dev/zero >&2; exit 3");
  command.standardError = StandardError::kCapture;
  const Outcome outcome = run(command);
  EXPECT_EQ(outcome.output.size(), 1000000u);
  EXPECT_EQ(outcome.errorOutput.size(), 1000000u);
  EXPECT_EQ(outcome.status, 3);

  command = shell("echo out; echo err >&2");
  command.standardError = StandardError::kMergeIntoOutput;
  EXPECT_EQ(run(command).output, "out\nerr\n");
}

TEST(Process, InputFolderAndEnvironment) {
  const TemporaryFolder folder;
  const ScopedEnvironment options("ZIPOPT", "-9"), locale("LC_ALL", "de_DE");
  Command command = shell("cat; pwd; echo \"[$ZIPOPT][$LC_ALL][$OWN]\"");
  command.input = std::string(200000, 'i');
  command.workingDirectory = folder.path();
  command.environment = {{"OWN", "a b"}};
  EXPECT_EQ(run(command).output, std::string(200000, 'i') + folder.path() + "\n[][C.UTF-8][a b]\n");
  EXPECT_EQ(run(shell("cat")).output, "") << "input is empty, not the terminal's";
}

TEST(Process, SecretsReachOnlyWhatSigns) {
  const TemporaryFolder root;
  const ScopedEnvironment environment("TOVREK_HOST_ROOT", root.path()),
      password("TOVREK_KEYCHAIN_PASSWORD", "pw"), pin("TOVREK_PKCS11_PIN", "12");
  for (const char* name : {"codesign", "security", "xcrun", "unzip"}) {
    const std::string tool =
        root.write(std::string("usr/bin/") + name,
                   "#!/bin/sh\necho \"[$TOVREK_KEYCHAIN_PASSWORD$TOVREK_PKCS11_PIN]\"\n");
    ::chmod(tool.c_str(), 0755);
  }
  const auto got = [](const Command& command) { return run(command).output == "[pw12]\n"; };
  EXPECT_TRUE(got({.argv = {"/usr/bin/codesign", "-d", "x"}}));
  EXPECT_TRUE(got({.argv = {"security"}}));
  EXPECT_TRUE(got(shellCommand("security find-identity")));
  EXPECT_TRUE(got(shellCommand("/usr/bin/codesign -d x")));
  EXPECT_TRUE(got({.argv = {"/usr/bin/xcrun", "-sdk", "iphoneos", "PackageApplication", "x"}}));
  EXPECT_FALSE(got({.argv = {"/usr/bin/xcrun", "-sdk", "codesign", "unzip", "codesign"}}));
  EXPECT_FALSE(got({.argv = {"/usr/bin/unzip", "codesign", "security/xcrun"}}));
  EXPECT_FALSE(got(shellCommand("/usr/bin/unzip codesign /usr/bin/security")));
}

TEST(Process, OnlyCompanionsReportTheirProgress) {
  const TemporaryFolder root;
  const ScopedEnvironment environment("TOVREK_HOST_ROOT", root.path()),
      own("TOVREK_PROGRESS_FD", "1");
  const std::string script =
      "#!/bin/sh\necho \"[$TOVREK_PROGRESS_FD]\"; test -S /proc/self/fd/3 && echo socket\n";
  for (const char* path : {"usr/bin/zip", "bin/other"}) {
    ::chmod(root.write(path, script).c_str(), 0755);
  }
  size_t heard = 0;
  const auto listen = [&](const Progress& progress) { heard += progress.done == 0 ? 1 : 0; };
  EXPECT_EQ(run({.argv = {"/usr/bin/zip"}, .onProgress = listen}).output, "[3]\nsocket\n");
  EXPECT_GT(heard, 0u);
  EXPECT_EQ(run({.argv = {"/usr/bin/zip"}}).output, "[]\n");
  EXPECT_EQ(run({.argv = {root.path() + "/bin/other"}, .onProgress = listen}).output, "[]\n");
}

TEST(Process, UnreadInputAndDeathBySignal) {
  Command command = shell("exit 0");
  command.input = std::string(1000000, 'x');
  EXPECT_EQ(run(command).status, 0);
  const Outcome killed = run(shell("kill -9 $$"));
  EXPECT_TRUE(killed.signalled);
  EXPECT_EQ(killed.status, SIGKILL);
}

TEST(Process, MissingProgramIsAFailureToStart) {
  Outcome outcome;
  ErrorText error;
  EXPECT_FALSE(runProcess({.argv = {"/no/such/program"}}, &outcome, &error));
  EXPECT_EQ(error.text(), "No such file or directory");
}

TEST(HostRoot, StandsInForSystemPathsOnly) {
  const TemporaryFolder root;
  const std::string tool = root.write("usr/bin/tool", "#!/bin/sh\necho \"stand-in $*\"\n");
  ::chmod(tool.c_str(), 0755);
  const ScopedEnvironment environment("TOVREK_HOST_ROOT", root.path());

  EXPECT_EQ(HostRoot::resolve("/usr/bin/tool"), tool);
  EXPECT_EQ(HostRoot::resolve("/bin/sh"), "/bin/sh");
  EXPECT_EQ(HostRoot::resolve("usr/bin/tool"), "usr/bin/tool");
  // What stands there but cannot be looked at is not replaced by the system's program.
  const std::string loop = root.file("usr/bin/cat");
  ASSERT_EQ(::symlink(loop.c_str(), loop.c_str()), 0);
  EXPECT_EQ(HostRoot::resolve("/usr/bin/cat"), loop);
  Outcome outcome;
  EXPECT_FALSE(runProcess({.argv = {"/usr/bin/cat"}}, &outcome));
  EXPECT_TRUE(HostRoot::exists("/usr/bin/tool"));
  EXPECT_EQ(run({.argv = {"/usr/bin/tool", "a b"}}).output, "stand-in a b\n");
  EXPECT_EQ(run({.argv = {"tool"}}).output, "stand-in \n") << "found in the child's PATH";
  EXPECT_EQ(run(shellCommand("/usr/bin/tool -l \"x y\" | cat")).output, "stand-in -l x y\n");
  EXPECT_EQ(run(shellCommand("tool z")).output, "stand-in z\n");
}

// Whatever is taken for plain, the shell has to see the same words in.
TEST(ShellLine, PlainWordsAreTheShells) {
  for (const char* line :
       {"a", " a\t b ", "'a b'c\"d e\"", "\"\" ''", "'/a b/otool' -l \"/t/\xc3\xbc (1) [*] 'x'\"",
        "'$HOME`x`\\' \"a\nb\"", "a,b@c:d%e+f"}) {
    const auto words = plainWords(line);
    std::string seen;
    ASSERT_TRUE(words) << line;
    for (const std::string& word : *words) seen += "[" + word + "]";
    EXPECT_EQ(run(shell(std::string("printf '[%s]' ") + line)).output, seen) << line;
  }
  for (const char* line :
       {"",    " ",       "a|b",      "a b;c", "a &",  "a >b",  "a <b", "$a",     "\"$a\"",
        "`a`", "\"`a`\"", "\"a\\b\"", "a\\ b", "a*",   "a?",    "[a]",  "~",      "{a,b}",
        "a#b", "(a)",     "'a",       "\"a",   "a\nb", "A=b c", "!",    "\"a!\"", "\xc3\xbc"}) {
    EXPECT_FALSE(plainWords(line)) << line;
  }
}

TEST(Process, QuotingForTheShell) {
  const std::string nasty = "a'b\"$(x)`y`\\ \n\xc3\xbc";
  EXPECT_EQ(run(shell("printf %s " + quotedForShell(nasty))).output, nasty);
}

TEST(Signals, InterruptionRemovesScratchAndEndsBySignal) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    const TemporaryFolder folder;
    const std::string scratch = folder.file("scratch");
    const std::string kept = folder.write("kept", "x");
    const pid_t program = ::fork();
    ASSERT_GE(program, 0);
    if (program == 0) {
      installSignalHandlers();
      createDirectories(scratch + "/sub");
      const RemovedOnSignal guard(scratch);
      { const RemovedOnSignal forgotten(kept); }
      Outcome outcome;
      runProcess({.argv = {"/bin/sh", "-c", "touch " + scratch + "/sub/started; sleep 30"}},
                 &outcome);
      ::_exit(99);
    }
    const double limit = currentTime() + 20;
    while (!fileExists(scratch + "/sub/started") && currentTime() < limit) ::usleep(10000);
    ::kill(program, number);
    int status = 0;
    ASSERT_EQ(::waitpid(program, &status, 0), program);
    EXPECT_TRUE(WIFSIGNALED(status)) << number;
    EXPECT_EQ(WTERMSIG(status), number);
    EXPECT_FALSE(fileExists(scratch));
    EXPECT_TRUE(fileExists(kept));
  }
}

// The end of a process, if it comes in time.
std::optional<int> endOf(pid_t process) {
  const double limit = currentTime() + 30;
  int status = 0;
  while (::waitpid(process, &status, WNOHANG) == 0) {
    if (currentTime() > limit) {
      ::kill(process, SIGKILL);
      ::waitpid(process, &status, 0);
      return std::nullopt;
    }
    ::usleep(1000);
  }
  return status;
}

TEST(Signals, InterruptionAmidTheUseOfMemoryDoesNotHang) {
  for (int round = 0; round < 20; ++round) {
    const TemporaryFolder folder;
    const std::string scratch = folder.write("scratch", "x");
    const std::string ready = folder.file("ready");
    const pid_t program = ::fork();
    ASSERT_GE(program, 0);
    if (program == 0) {
      installSignalHandlers();
      const RemovedOnSignal guard(scratch);
      // Too large for the store of a thread, so that each takes the lock.
      const auto useMemory = [] {
        for (;;) std::vector<char>(size_t{2000}).swap(*std::make_unique<std::vector<char>>());
      };
      std::thread second(useMemory);
      folder.write("ready", "");
      useMemory();
    }
    const double limit = currentTime() + 30;
    while (!fileExists(ready) && currentTime() < limit) ::usleep(100);
    ::usleep(static_cast<useconds_t>(100 * round));
    ::kill(program, SIGTERM);
    const auto status = endOf(program);
    ASSERT_TRUE(status) << "hangs in round " << round;
    EXPECT_EQ(WTERMSIG(*status), SIGTERM);
    EXPECT_FALSE(fileExists(scratch));
  }
}

TEST(HostInfo, TemporaryFolderFollowsTmpdirOnlyWhenItIsAFolder) {
  const TemporaryFolder folder;
  {
    const ScopedEnvironment named("TMPDIR", folder.path());
    EXPECT_EQ(systemTemporaryFolder(), folder.path());
  }
  const ScopedEnvironment missing("TMPDIR", folder.file("missing"));
  const auto own = systemTemporaryFolder();
  ASSERT_TRUE(own);
  EXPECT_EQ(*own, "/tmp/tovrek-" + std::to_string(::getuid()));
}

TEST(HostInfo, UniqueStringsAreVersion4AndDiffer) {
  const std::string one = uniqueString();
  ASSERT_EQ(one.size(), 36u);
  EXPECT_EQ(one[14], '4');
  EXPECT_NE(std::string("89AB").find(one[19]), std::string::npos);
  EXPECT_NE(one, uniqueString());
}

TEST(HostInfo, MacAddressHasSixBytes) {
  ErrorText error;
  const auto address = macAddress(&error);
  ASSERT_TRUE(address) << error.text();
  EXPECT_EQ(address->size(), 17u);
}

TEST(Clock, DescriptionReachesBeyond2038) {
  EXPECT_EQ(dateDescription(0), "1970-01-01 00:00:00 +0000");
  EXPECT_EQ(dateDescription(4102444800.0), "2100-01-01 00:00:00 +0000");
  EXPECT_EQ(dateDescription(kReferenceDateOffset - 0.5), "2000-12-31 23:59:59 +0000");
}

}  // namespace
}  // namespace tovrek
