#include "programs/inspect/Options.h"

#include <fmt/format.h>

#include <charconv>

namespace tovrek::inspect {
namespace {

constexpr int kMostDays = 36500;

struct TextOption {
  std::string_view name;
  std::optional<std::string> Options::*field;
};
constexpr TextOption kTextOptions[] = {
    {"--against", &Options::against},    {"--cert", &Options::certificate},
    {"--profile", &Options::profile},    {"--keychain", &Options::keychain},
    {"--html", &Options::html},          {"--explain", &Options::explain},
    {"--bundle-id", &Options::bundleId},
};
struct Switch {
  std::string_view name;
  bool Options::*field;
};
constexpr Switch kSwitches[] = {{"--json", &Options::json},
                                {"--strict", &Options::strict},
                                {"--upgrade", &Options::isUpgrade},
                                {"--no-strip-extensions", &Options::keepsExtensions},
                                {"--help", &Options::help}};

// One word after the other, with what belongs to each.
class Parser {
 public:
  explicit Parser(const std::vector<std::string>& words) : words_(words) {}

  bool parse(Options* options, ErrorText* error) {
    bool onlyPaths = false;
    for (; at_ < words_.size(); ++at_) {
      const std::string& word = words_[at_];
      if (onlyPaths || word.size() < 2 || word.front() != '-') {
        options->paths.push_back(word);
      } else if (word == "--") {
        onlyPaths = true;
      } else if (!parseOption(word, options, error)) {
        return false;
      }
    }
    return check(*options, error);
  }

 private:
  bool parseOption(const std::string& word, Options* options, ErrorText* error) {
    const size_t sign = word.find('=');
    const std::string name = word.substr(0, sign);
    for (const Switch& each : kSwitches) {
      if (name != each.name) continue;
      if (sign != std::string::npos) return fail(error, name + " takes no value");
      options->*each.field = true;
      return true;
    }
    std::string value;
    for (const TextOption& each : kTextOptions) {
      if (name != each.name) continue;
      if (options->*each.field) return fail(error, name + " is given twice");
      if (!takeValue(word, sign, &value, error)) return false;
      options->*each.field = value;
      return true;
    }
    if (name != "--within") return fail(error, fmt::format("there is no option {}", name));
    return takeValue(word, sign, &value, error) && parseDays(value, options, error);
  }

  bool takeValue(const std::string& word, size_t sign, std::string* value, ErrorText* error) {
    if (sign != std::string::npos) {
      *value = word.substr(sign + 1);
    } else if (at_ + 1 < words_.size()) {
      *value = words_[++at_];
    }
    return !value->empty() || fail(error, word.substr(0, sign) + " needs a value");
  }

  static bool parseDays(const std::string& value, Options* options, ErrorText* error) {
    int days = -1;
    const char* end = value.data() + value.size();
    const auto parsed = std::from_chars(value.data(), end, days);
    if (parsed.ec != std::errc() || parsed.ptr != end || days < 0 || days > kMostDays) {
      return fail(error, fmt::format("--within takes days from 0 to {}, not {}", kMostDays, value));
    }
    options->within = days;
    return true;
  }

  static bool check(const Options& options, ErrorText* error) {
    if (options.help || options.explain) return true;
    if (options.paths.empty()) return fail(error, "nothing to inspect was named");
    if (options.json && options.html) return fail(error, "--json and --html exclude each other");
    const bool asksForWrap = options.certificate || options.profile;
    if (!asksForWrap && (options.bundleId || options.isUpgrade || options.keepsExtensions)) {
      return fail(error,
                  "--bundle-id, --upgrade and --no-strip-extensions need --cert or --profile");
    }
    const bool isAboutOne = options.against || asksForWrap;
    if (isAboutOne && options.paths.size() != 1) {
      return fail(error, "--against, --cert and --profile are about one input");
    }
    return true;
  }

  const std::vector<std::string>& words_;
  size_t at_ = 0;
};

}  // namespace

std::optional<Options> parseOptions(const std::vector<std::string>& words, ErrorText* error) {
  Options options;
  if (!Parser(words).parse(&options, error)) return std::nullopt;
  return options;
}

}  // namespace tovrek::inspect
