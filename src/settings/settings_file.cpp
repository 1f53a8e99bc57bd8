#include "settings/settings_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <set>

#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"

namespace tovrek {
namespace {

// Takes a value; null, or what the values are that it should have been one of.
using TakeValue = const char* (*)(const std::string& value, Settings* out);

template <bool Settings::*field>
const char* takeSwitch(const std::string& value, Settings* out) {
  out->*field = value == "yes";
  return value == "yes" || value == "no" ? nullptr : "yes or no";
}

const char* takeResultCheck(const std::string& value, Settings* out) {
  out->verifyResult = value == "strict" ? ResultCheck::kStrict
                      : value == "yes"  ? ResultCheck::kWarns
                                        : ResultCheck::kNone;
  return value == "no" || out->verifyResult != ResultCheck::kNone ? nullptr : "yes, no or strict";
}

const char* takeFolder(const std::string& value, Settings* out) {
  const std::string path = value == "no" ? "" : standardizePath(value);
  if (value != "no" && !path.starts_with('/')) return "no or an absolute path";
  out->profilesFolder = path;
  return nullptr;
}

struct NamedSetting {
  std::string_view name;
  TakeValue take;
  bool Settings::*named = nullptr;  // where it matters whether the file names it
};
constexpr std::array<NamedSetting, 11> kNamedSettings = {{
    {"modernImages", takeSwitch<&Settings::modernImages>, &Settings::namesModernImages},
    {"strictHeaderRoom", takeSwitch<&Settings::strictHeaderRoom>, &Settings::namesStrictHeaderRoom},
    {"resignNested", takeSwitch<&Settings::resignNested>},
    {"resignWrapped", takeSwitch<&Settings::resignWrapped>, &Settings::namesResignWrapped},
    {"keepPlistLimits", takeSwitch<&Settings::keepPlistLimits>},
    {"refreshOnResign", takeSwitch<&Settings::refreshOnResign>},
    {"keepExtensionsOnSign", takeSwitch<&Settings::keepExtensionsOnSign>},
    {"failUnpacking", takeSwitch<&Settings::failUnpacking>},
    {"renameExtensions", takeSwitch<&Settings::renameExtensions>},
    {"verifyResult", takeResultCheck},
    {"profilesFolder", takeFolder},
}};

const NamedSetting* settingOf(std::string_view name) {
  const auto found = std::ranges::find(kNamedSettings, name, &NamedSetting::name);
  return found == kNamedSettings.end() ? nullptr : &*found;
}

// Limits have the names of their fields here.
const NamedLimit* limitOf(std::string_view name) {
  const auto found = std::ranges::find(namedLimits(), name, &NamedLimit::name);
  return found == namedLimits().end() ? nullptr : &*found;
}

class SettingsReader {
 public:
  explicit SettingsReader(Settings* out) : out_(*out) {}

  // Takes one line; false with the reason, which does not say where.
  bool take(std::string_view line, ErrorText* reason) {
    line = line.substr(0, line.find('#'));
    const size_t sign = line.find('=');
    const std::string name = trimmed(line.substr(0, sign));
    if (name.empty() && sign == std::string_view::npos) return true;
    if (sign == std::string_view::npos) {
      return fail(reason,
                  fmt::format("\"{}\" is not of the form \"name = yes\" or \"name = no\"", name));
    }
    const NamedSetting* setting = settingOf(name);
    const NamedLimit* limit = limitOf(name);
    if (setting == nullptr && limit == nullptr) {
      return fail(reason, fmt::format("there is no setting \"{}\"", name));
    }
    if (!given_.insert(name).second) {
      return fail(reason, fmt::format("\"{}\" is given twice", name));
    }
    const std::string value = trimmed(line.substr(sign + 1));
    const std::string wanted =
        limit != nullptr ? raiseLimit(*limit, value, &out_.limits) : takeValue(*setting, value);
    return wanted.empty() ||
           fail(reason, fmt::format("\"{}\" must be {}, not \"{}\"", name, wanted, value));
  }

 private:
  std::string takeValue(const NamedSetting& setting, const std::string& value) {
    if (setting.named != nullptr) out_.*setting.named = true;
    const char* wanted = setting.take(value, &out_);
    return wanted == nullptr ? "" : wanted;
  }

  Settings& out_;
  std::set<std::string> given_;
};

}  // namespace

bool parseSettings(std::string_view contents, const std::string& path, Settings* out,
                   ErrorText* error) {
  *out = {};
  out->limits = limitsInForce();
  SettingsReader reader(out);
  for (size_t number = 1; !contents.empty(); ++number) {
    const size_t length = std::min(contents.find('\n'), contents.size());
    ErrorText reason;
    if (!reader.take(contents.substr(0, length), &reason)) {
      return fail(error, fmt::format("Settings file {}, line {}: {}", path, number, reason.text()));
    }
    contents.remove_prefix(std::min(length + 1, contents.size()));
  }
  return true;
}

bool readSettings(Settings* out, ErrorText* error) {
  *out = {};
  out->limits = limitsInForce();
  const char* named = std::getenv("TOVREK_CONF");
  const bool isNamed = named != nullptr && *named != '\0';
  const std::string path =
      isNamed ? standardizePath(named) : joinPath(programFolder(), "tovrek.conf");
  // A link that points nowhere is no missing file, but a mistake to tell of.
  if (isNamed || itemExistsNoFollow(path)) {
    std::string contents;
    ErrorText reason;
    if (!readFile(path, &contents, &reason)) {
      return fail(error, fmt::format("Settings file {}: {}", path, reason.text()));
    }
    if (!parseSettings(contents, path, out, error)) return false;
  }
  const char* profiles = std::getenv("TOVREK_PROFILES");
  if (profiles != nullptr && *profiles != '\0') out->profilesFolder = standardizePath(profiles);
  return true;
}

}  // namespace tovrek
