// The option tables of the commands: one row for each option, in the command's order.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "context/PellRequest.h"
#include "converter/Request.h"
#include "host/ErrorText.h"

namespace tovrek {

// What the rows of a table work on while a command line is read.
struct OptionTarget {
  Request& request;
  PellRequest& keychain;
  ErrorText* error;
};

struct Option {
  std::string name;
  // Acts when the option is met, before a value is looked at; false refuses the command line.
  // May be absent.
  std::function<bool(OptionTarget&)> meet;
  // Takes the value, and prints the trace. Absent for options without one.
  std::function<bool(OptionTarget&, const std::string& value)> take;
};

using OptionTable = std::vector<Option>;

// A field of the request.
using TextField = std::optional<std::string> Request::*;
using LevelField = int64_t Request::*;
using FlagField = bool Request::*;

// How a value becomes what is stored.
enum class Form { kAsTyped, kStandardizedPath, kTrimmed, kWithoutQuotes };
std::string inForm(Form form, const std::string& value);

// Stores a text, then prints "Option: <label>\n" with the stored text in the place of "{}".
Option valueOption(std::string name, TextField field, std::string label,
                   Form form = Form::kAsTyped);
// Stores a number made of decimal digits; its range is judged later.
Option levelOption(std::string name, LevelField field);
// "yes" and "no" in any case; other words leave the field as it is. The trace has the word.
Option yesNoOption(std::string name, FlagField field, std::string label);
// Sets the field; prints "Option: <label>\n" unless the label is empty.
template <class Value>
Option flagOption(std::string name, Value Request::*field, Value value, std::string label);
// A value with its own rule, trace included.
Option checkedOption(std::string name,
                     std::function<bool(OptionTarget&, const std::string& value)> take);
// The rule for "-policyXML" and its like is valueOption; this one is for "-storeURL": a URL with
// scheme and host. An escaped one may hold characters that URLs do not allow.
enum class UrlForm { kStrict, kEscaped };
bool takeStoreUrl(OptionTarget& target, const std::string& value, UrlForm form);

// The options of every command (input, output, log), then those of its own.
OptionTable withCommon(OptionTable own);

// Prints "Option: <text>\n".
void printTrace(std::string_view text);

template <class Value>
Option flagOption(std::string name, Value Request::*field, Value value, std::string label) {
  return {std::move(name),
          [=](OptionTarget& target) {
            target.request.*field = value;
            if (!label.empty()) printTrace(label);
            return true;
          },
          nullptr};
}

// Failures that options share; all answer false.
bool failMissingValue(ErrorText* error, std::string_view option);
bool failInvalidValue(ErrorText* error, std::string_view option);
bool failMissingArgument(ErrorText* error, std::string_view option);

}  // namespace tovrek
