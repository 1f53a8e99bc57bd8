// What the manual and the completion say of the options, against the parsers' tables.
#include <gtest/gtest.h>

#include <map>
#include <regex>

#include "host/files.h"
#include "programs/tovrek/SdkPrepCommand.h"
#include "programs/tovrek/SetInfoCommand.h"
#include "programs/tovrek/SignCommand.h"
#include "programs/tovrek/WrapCommand.h"

namespace tovrek {
namespace {

// Names of options, each with whether it takes a value.
using OptionNames = std::map<std::string, bool>;

std::string sourceFile(const std::string& path) {
  std::string text;
  ErrorText error;
  EXPECT_TRUE(readFile(TOVREK_SOURCES "/" + path, &text, &error)) << path << ": " << error.text();
  return text;
}

// The matches of `pattern`: the name, and what stands behind it when there is a value. A name
// that stands there twice is a mistake.
OptionNames namesIn(const std::string& text, const std::string& pattern) {
  OptionNames names;
  const std::regex expression(pattern);
  for (std::sregex_iterator at(text.begin(), text.end(), expression), end; at != end; ++at) {
    EXPECT_TRUE(names.emplace("-" + at->str(1), at->length(2) != 0).second) << at->str();
  }
  return names;
}

OptionNames pageNames(const std::string& page) {
  return namesIn(sourceFile("programs/tovrek/manual/" + page), R"(\n\.It Fl ([^\s-]\S*)( Ar)?)");
}

// The branch of `case` for the command, or that for all commands.
OptionNames completionNames(const std::string& label) {
  const std::string text = sourceFile("completion/options.sh");
  const size_t begin = text.find("    " + label + ") printf");
  EXPECT_NE(begin, std::string::npos) << label;
  return namesIn(text.substr(begin, text.find(";;", begin) - begin), R"('-(\S+?)( \S+)?')");
}

OptionNames joined(OptionNames some, const OptionNames& others) {
  for (const auto& [name, takesValue] : others) {
    EXPECT_TRUE(some.emplace(name, takesValue).second) << name << " stands in both";
  }
  return some;
}

OptionNames parserNames(const WexToolkitCommand& command) {
  OptionNames names = {{"-help", false}};
  for (const Option& option : command.options()) names[option.name] = bool{option.take};
  return names;
}

void expectDocuments(const std::string& word, const std::string& page,
                     const WexToolkitCommand& command) {
  SCOPED_TRACE(word);
  OptionNames wanted = parserNames(command);
  EXPECT_EQ(joined(pageNames(page), pageNames("tovrek.1")), wanted);
  wanted.erase("-sdk");  // never accepted, and so not offered
  EXPECT_EQ(joined(completionNames(word), completionNames("*")), wanted);
}

TEST(Documents, HaveTheOptionsOfEachCommand) {
  expectDocuments("Wrap", "tovrek-wrap.1", WrapCommand());
  expectDocuments("Sign", "tovrek-sign.1", SignCommand());
  expectDocuments("SetInfo", "tovrek-setinfo.1", SetInfoCommand());
  expectDocuments("SdkPrep", "tovrek-sdkprep.1", SdkPrepCommand());
}

}  // namespace
}  // namespace tovrek
