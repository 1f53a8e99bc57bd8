// Columns are the toolkit's options, neither more nor fewer.
#include "batch/columns.h"

#include <gmock/gmock.h>

#include <set>
#include <string>

#include "batch/slurm_engine.h"
#include "programs/tovrek/SdkPrepCommand.h"
#include "programs/tovrek/SetInfoCommand.h"
#include "programs/tovrek/SignCommand.h"
#include "programs/tovrek/WrapCommand.h"

namespace tovrek::batch {
namespace {

// What a table has no column for: the help, the log, which is each row's own, and an option that
// only ever refuses.
const std::set<std::string> kNoColumns = {"-help", "-logFile", "-sdk"};

TEST(Columns, AreTheOptionsOfEachCommand) {
  const std::pair<CommandKind, std::vector<std::string>> commands[] = {
      {CommandKind::kWrap, WrapCommand().supportedParams()},
      {CommandKind::kSign, SignCommand().supportedParams()},
      {CommandKind::kSetInfo, SetInfoCommand().supportedParams()},
      {CommandKind::kSdkPrep, SdkPrepCommand().supportedParams()},
  };
  for (const auto& [command, options] : commands) {
    SCOPED_TRACE(nameOf(command));
    std::set<std::string> expected(options.begin(), options.end());
    for (const std::string& name : kNoColumns) expected.erase(name);
    std::set<std::string> found;
    for (const Column& column : columns()) {
      if (column.knows(command)) found.insert(std::string("-") + column.name);
    }
    EXPECT_EQ(found, expected);
    for (const std::string& option : options) EXPECT_TRUE(isReserved(command, option)) << option;
    EXPECT_FALSE(isReserved(command, "-other"));
  }
}

TEST(SlurmArrays, NameRowsFromZero) {
  std::vector<Job> jobs(6);
  for (size_t i = 0; const size_t row : {1, 2, 3, 5, 8, 9}) jobs[i++].row = row;
  std::vector<const Job*> all;
  for (const Job& job : jobs) all.push_back(&job);
  EXPECT_EQ(arrayOf(all), "0-2,4,7-8");
  EXPECT_EQ(arrayOf({all[3]}), "4");
}

}  // namespace
}  // namespace tovrek::batch
