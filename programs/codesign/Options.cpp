#include "programs/codesign/Options.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <string_view>

namespace tovrek::codesign {

namespace {

// What a bare --preserve-metadata means.
constexpr const char* kPreservedByDefault =
    "identifier,requirements,entitlements,resource-rules,flags";

enum class Argument { kNone, kRequired, kOptional };

struct OptionName {
  char letter;  // 0: none
  const char* name;
  Argument argument;
};

// Letters and names that mean the same stand in one row. Those that the program takes and has no
// use for are here too: scripts pass them.
constexpr OptionName kNames[] = {
    {'a', "architecture", Argument::kRequired},
    {'d', "display", Argument::kNone},
    {'D', "detached", Argument::kRequired},
    {'f', "force", Argument::kNone},
    {'h', "hosting", Argument::kNone},
    {'i', "identifier", Argument::kRequired},
    {'o', "options", Argument::kRequired},
    {'P', "pagesize", Argument::kRequired},
    {'r', "requirements", Argument::kRequired},
    {'R', "test-requirement", Argument::kRequired},
    {'s', "sign", Argument::kRequired},
    {'v', "verbose", Argument::kOptional},
    {0, "verify", Argument::kNone},
    {0, "all-architectures", Argument::kNone},
    {0, "check-notarization", Argument::kNone},
    {0, "continue", Argument::kNone},
    {0, "deep", Argument::kNone},
    {0, "digest-algorithm", Argument::kRequired},
    {'n', "dryrun", Argument::kNone},
    {0, "entitlements", Argument::kRequired},
    {0, "extract-certificates", Argument::kOptional},
    {0, "force-library-entitlements", Argument::kNone},
    {0, "generate-entitlement-der", Argument::kNone},
    {0, "generate-pre-encrypt-hashes", Argument::kNone},
    {0, "help", Argument::kNone},
    {0, "ignore-resources", Argument::kNone},
    {0, "keychain", Argument::kRequired},
    {0, "no-strict", Argument::kNone},
    {0, "prefix", Argument::kRequired},
    {0, "preserve-metadata", Argument::kOptional},
    {0, "remove-signature", Argument::kNone},
    {0, "resource-rules", Argument::kRequired},
    {0, "runtime-version", Argument::kRequired},
    {0, "strict", Argument::kOptional},
    {0, "strip-disallowed-xattrs", Argument::kNone},
    {0, "timestamp", Argument::kOptional},
    {0, "xml", Argument::kNone},
};

const OptionName* byLetter(char letter) {
  const auto* at = std::find_if(std::begin(kNames), std::end(kNames),
                                [&](const OptionName& name) { return name.letter == letter; });
  return at == std::end(kNames) || letter == 0 ? nullptr : at;
}

// An exact name, else the only one that starts so.
const OptionName* byName(std::string_view text, ErrorText* error) {
  const OptionName* found = nullptr;
  for (const OptionName& name : kNames) {
    if (text == name.name) return &name;
    if (!std::string_view(name.name).starts_with(text)) continue;
    if (found != nullptr) {
      fail(error, fmt::format("option '--{}' is ambiguous", text));
      return nullptr;
    }
    found = &name;
  }
  if (found == nullptr) fail(error, fmt::format("unrecognized option '--{}'", text));
  return found;
}

class Parser {
 public:
  Parser(const std::vector<std::string>& arguments, Options* out, ErrorText* error)
      : arguments_(arguments), out_(*out), error_(error) {}

  bool parse() {
    while (at_ < arguments_.size()) {
      const std::string& argument = arguments_[at_++];
      if (argument == "--") {
        out_.paths.insert(out_.paths.end(), arguments_.begin() + static_cast<std::ptrdiff_t>(at_),
                          arguments_.end());
        break;
      }
      const bool isOption = argument.size() > 1 && argument[0] == '-';
      if (!isOption) {
        out_.paths.push_back(argument);
      } else if (!(argument[1] == '-' ? longOption(argument.substr(2)) : letters(argument))) {
        return false;
      }
    }
    return finish();
  }

 private:
  bool longOption(const std::string& text) {
    const size_t equals = text.find('=');
    const OptionName* name = byName(std::string_view(text).substr(0, equals), error_);
    if (name == nullptr) return false;
    std::optional<std::string> value;
    if (equals != std::string::npos) value = text.substr(equals + 1);
    if (value && name->argument == Argument::kNone) {
      return fail(error_, fmt::format("option '--{}' doesn't allow an argument", name->name));
    }
    if (!value && name->argument == Argument::kRequired && !next(name->name, &value)) return false;
    return apply(*name, value);
  }

  // "-fs ID": letters share a dash; one that needs a value takes the rest or the next argument.
  bool letters(const std::string& text) {
    for (size_t i = 1; i < text.size(); ++i) {
      const OptionName* name = byLetter(text[i]);
      if (name == nullptr) return fail(error_, fmt::format("illegal option -- {}", text[i]));
      std::optional<std::string> value;
      if (name->argument == Argument::kRequired) {
        if (i + 1 < text.size()) {
          value = text.substr(i + 1);
        } else if (!next(name->name, &value)) {
          return false;
        }
        return apply(*name, value);
      }
      if (!apply(*name, std::nullopt)) return false;
    }
    return true;
  }

  bool next(const char* name, std::optional<std::string>* value) {
    if (at_ == arguments_.size()) {
      return fail(error_, fmt::format("option '--{}' requires an argument", name));
    }
    *value = arguments_[at_++];
    return true;
  }

  bool setOperation(Operation operation) {
    if (out_.operation != Operation::kNone && out_.operation != operation) {
      return fail(error_, "only one of signing, verifying, displaying and removing is possible");
    }
    out_.operation = operation;
    return true;
  }

  bool verbose(const std::optional<std::string>& level) {
    if (!level) {
      ++out_.verbosity;
      return true;
    }
    const char* end = level->data() + level->size();
    const auto [stop, code] = std::from_chars(level->data(), end, out_.verbosity);
    if (code == std::errc() && stop == end) return true;
    return fail(error_, fmt::format("\"{}\" is no level of verbosity", *level));
  }

  bool apply(const OptionName& option, const std::optional<std::string>& value) {
    const std::string_view name = option.name;
    if (name == "sign") {
      out_.identity = *value;
      return setOperation(Operation::kSign);
    }
    if (name == "verify") return setOperation(Operation::kVerify);
    if (name == "display") return setOperation(Operation::kDisplay);
    if (name == "remove-signature") return setOperation(Operation::kRemove);
    if (name == "verbose") return verbose(value);
    if (name == "force") out_.force = true;
    if (name == "xml") out_.xml = true;
    if (name == "strict") out_.strict = true;
    if (name == "no-strict") out_.strict = false;
    if (name == "dryrun") out_.dryRun = true;
    if (name == "continue") out_.goOn = true;
    if (name == "help") out_.help = true;
    if (name == "timestamp") out_.timestamp = value.value_or("") != "none";
    if (name == "prefix") out_.prefix = *value;
    if (name == "digest-algorithm") out_.digests.push_back(*value);
    if (name == "preserve-metadata") out_.preserve = value.value_or(kPreservedByDefault);
    if (name == "extract-certificates") out_.extractCertificates = value.value_or("codesign");
    if (name == "detached" || name == "hosting") {
      return fail(error_, fmt::format("option '--{}' is not supported here", name));
    }
    const std::pair<const char*, std::optional<std::string>*> texts[] = {
        {"architecture", &out_.architecture},
        {"identifier", &out_.identifier},
        {"options", &out_.flags},
        {"pagesize", &out_.pageSize},
        {"requirements", &out_.requirements},
        {"test-requirement", &out_.testRequirement},
        {"entitlements", &out_.entitlements},
        {"keychain", &out_.keychain},
        {"resource-rules", &out_.resourceRules},
        {"runtime-version", &out_.runtimeVersion},
    };
    for (const auto& [known, target] : texts) {
      if (name == known) *target = value;
    }
    return true;
  }

  // A lone -v asks for a check; the further ones are its verbosity.
  bool finish() {
    if (out_.help) return true;
    if (out_.operation == Operation::kNone && out_.verbosity > 0) {
      out_.operation = Operation::kVerify;
      --out_.verbosity;
    }
    if (out_.operation == Operation::kNone) return fail(error_, "no operation given");
    if (out_.paths.empty()) return fail(error_, "no path given");
    return true;
  }

  const std::vector<std::string>& arguments_;
  Options& out_;
  ErrorText* error_;
  size_t at_ = 0;
};

}  // namespace

bool Options::parse(const std::vector<std::string>& arguments, Options* out, ErrorText* error) {
  *out = {};
  return Parser(arguments, out, error).parse();
}

}  // namespace tovrek::codesign
