#include "programs/tovrek/options.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <limits>
#include <utility>

#include "host/paths.h"
#include "log/SystemLog.h"
#include "programs/tovrek/url_rules.h"

namespace tovrek {
namespace {

// The label's "{}" replaced by the text; the text itself is never read as a pattern.
std::string filled(std::string_view label, std::string_view text) {
  return fmt::format(fmt::runtime(label), text);
}

bool takeLevel(OptionTarget& target, LevelField field, std::string_view name,
               const std::string& value) {
  const bool isNumber =
      !value.empty() && std::ranges::all_of(value, [](char c) { return c >= '0' && c <= '9'; });
  if (!isNumber) {
    return fail(
        target.error,
        fmt::format("Log level ({}) is invalid, it must be an integer from 0 to 4.", value));
  }
  int64_t level = 0;
  const auto result = std::from_chars(value.data(), value.data() + value.size(), level);
  if (result.ec == std::errc::result_out_of_range) level = std::numeric_limits<int64_t>::max();
  target.request.*field = level;
  printTrace(fmt::format("{} ({})", name.substr(1), level));
  return true;
}

}  // namespace

std::string inForm(Form form, const std::string& value) {
  switch (form) {
    case Form::kStandardizedPath:
      return standardizePath(value);
    case Form::kTrimmed:
      return trimmed(value);
    case Form::kWithoutQuotes: {
      std::string plain = value;
      std::erase(plain, '"');
      return plain;
    }
    case Form::kAsTyped:
      break;
  }
  return value;
}

Option valueOption(std::string name, TextField field, std::string label, Form form) {
  return checkedOption(std::move(name), [=](OptionTarget& target, const std::string& value) {
    target.request.*field = inForm(form, value);
    printTrace(filled(label, *(target.request.*field)));
    return true;
  });
}

Option levelOption(std::string name, LevelField field) {
  return checkedOption(name, [=](OptionTarget& target, const std::string& value) {
    return takeLevel(target, field, name, value);
  });
}

Option yesNoOption(std::string name, FlagField field, std::string label) {
  return checkedOption(std::move(name), [=](OptionTarget& target, const std::string& value) {
    if (equalsIgnoringCase(value, "yes")) target.request.*field = true;
    if (equalsIgnoringCase(value, "no")) target.request.*field = false;
    printTrace(filled(label, value));
    return true;
  });
}

Option checkedOption(std::string name,
                     std::function<bool(OptionTarget&, const std::string& value)> take) {
  return {std::move(name), nullptr, std::move(take)};
}

bool takeStoreUrl(OptionTarget& target, const std::string& value, UrlForm form) {
  target.request.appStoreUrl = value;
  if (!isUrlWithSchemeAndHost(form == UrlForm::kEscaped ? percentEscaped(value) : value)) {
    return failInvalidValue(target.error, "-storeURL");
  }
  printTrace(fmt::format("storeURL ({})", value));
  return true;
}

void printTrace(std::string_view text) {
  printOut(fmt::format("Option: {}\n", text));
}

bool failMissingValue(ErrorText* error, std::string_view option) {
  return fail(error, fmt::format("Parameter ({}) value is missing. ", option));
}

bool failInvalidValue(ErrorText* error, std::string_view option) {
  return fail(error, fmt::format("Parameter ({}) value is invalid. ", option));
}

bool failMissingArgument(ErrorText* error, std::string_view option) {
  return fail(error, fmt::format("A required command line argument ({}) is missing. ", option));
}

OptionTable withCommon(OptionTable own) {
  using R = Request;
  OptionTable table = {
      valueOption("-in", &R::inputFile, "inputFile ({})", Form::kStandardizedPath),
      valueOption("-out", &R::outputFile, "outputFile ({})", Form::kTrimmed),
      valueOption("-logFile", &R::logFile, "logFile name ({})"),
      levelOption("-logWriteLevel", &R::logWriteLevel),
      levelOption("-logDisplayLevel", &R::logDisplayLevel),
  };
  std::ranges::move(own, std::back_inserter(table));
  return table;
}

}  // namespace tovrek
