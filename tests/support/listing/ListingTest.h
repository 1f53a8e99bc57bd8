// Runs otool and nm beside LLVM's programs on the same files.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/CompanionTest.h"

namespace tovrek::test {

class ListingTest : public CompanionTest {
 protected:
  void SetUp() override {
    for (const std::string program :
         {TOVREK_CLANG, TOVREK_LD64_LLD, TOVREK_LLVM_OBJDUMP, TOVREK_LLVM_NM}) {
      if (program.empty() || program.ends_with("-NOTFOUND")) {
        GTEST_SKIP() << "clang, ld64.lld, llvm-objdump or llvm-nm is missing";
      }
    }
  }

  // What a program of the host prints; it must succeed.
  std::string host(const std::vector<std::string>& argv);
  // What otool or nm prints; it must succeed.
  std::string own(const std::vector<std::string>& words);
  // Runs the program and expects the status, and these pieces in what it prints.
  struct Answer {
    std::vector<std::string> words;
    int status;
    std::string output, error;
  };
  void expectAnswer(const std::string& program, const Answer& answer);

  // The Objective-C source compiled, and linked for arm64 with more options for the linker.
  std::string object(const std::string& arch);
  std::string linked(const std::vector<std::string>& options = {});
  std::string universal();
};

// The text with every match of RE2's pattern replaced.
std::string replaced(std::string text, const std::string& pattern, const std::string& by);

}  // namespace tovrek::test
