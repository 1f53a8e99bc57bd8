#include "batch/json_object.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

namespace tovrek::batch {
namespace {

using nlohmann::json;

// Takes the parser's events, which are no more than those of one flat object; the first other one
// ends the reading, however deep the text goes on.
class FlatObject final : public nlohmann::json_sax<json> {
 public:
  bool null() override { return add(std::nullopt); }
  bool boolean(bool value) override { return add(value ? "true" : "false"); }
  bool number_integer(number_integer_t value) override { return add(fmt::format("{}", value)); }
  bool number_unsigned(number_unsigned_t value) override { return add(fmt::format("{}", value)); }
  bool number_float(number_float_t, const string_t& written) override { return add(written); }
  bool string(string_t& value) override { return add(value); }
  bool binary(binary_t&) override { return refuse("it is no JSON object"); }
  bool start_array(size_t) override { return refuse(isOpen_ ? kWanted : "it is no JSON object"); }
  bool end_array() override { return true; }
  bool start_object(size_t) override {
    if (isOpen_) return refuse(kWanted);
    return isOpen_ = true;
  }
  bool end_object() override { return true; }
  bool key(string_t& name) override {
    if (!names_.insert(name).second) return refuse(fmt::format("\"{}\" stands there twice", name));
    name_ = name;
    return true;
  }
  bool parse_error(size_t position, const std::string&, const json::exception&) override {
    return refuse(fmt::format("it is no sound JSON (at character {})", position));
  }

  std::vector<JsonMember> members;
  std::string reason;

 private:
  static constexpr const char* kWanted = "a text, number, true, false or null was expected";

  bool refuse(std::string why) {
    reason = std::move(why);
    return false;
  }
  bool add(std::optional<std::string> value) {
    if (!isOpen_) return refuse("it is no JSON object");
    members.emplace_back(name_, std::move(value));
    return true;
  }

  bool isOpen_ = false;
  std::string name_;
  std::set<std::string> names_;
};

}  // namespace

std::optional<std::vector<JsonMember>> readJsonObject(std::string_view text, ErrorText* error) {
  FlatObject object;
  if (json::sax_parse(text, &object)) return std::move(object.members);
  fail(error, std::move(object.reason));
  return std::nullopt;
}

std::string memberText(const std::vector<JsonMember>& members, std::string_view name) {
  const auto found = std::ranges::find(members, name, &JsonMember::first);
  return found == members.end() ? "" : found->second.value_or("");
}

}  // namespace tovrek::batch
