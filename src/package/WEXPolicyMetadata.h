// Derives the policy defaults file that a managed app reads from the policy definition file.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "formats/XmlReader.h"
#include "log/WrapperLogger.h"

namespace tovrek {

// The definition file has a root "PolicyMetadata" and, anywhere below, "Policy" elements with
// "PolicyName" and "PolicyDefault". The defaults file has one element per named policy, in file
// order, whose name is the policy's and whose text is its default.
class WEXPolicyMetadata : private XmlEvents {
 public:
  // One policy: texts under "PolicyName" and "PolicyDefault".
  using Policy = std::map<std::string, std::string, std::less<>>;

  // `logger` must outlive the object.
  explicit WEXPolicyMetadata(const WrapperLogger& logger) : logger_(logger) {}

  // Reads the definition file. False when it is not well formed or holds no policy; a failure
  // stays with the object, also over a later good file. What was read before a fault is kept.
  bool startParsingXMLFile(const std::string& path);
  // Writes the defaults file, indented. True when at least one policy was written; the result of
  // the write itself is not looked at.
  bool generateDefaultWexPolicesXMLAtFilePath(const std::string& path);

  bool success() const { return success_; }
  const std::vector<Policy>& marrXMLData() const { return policies_; }

 private:
  void startElement(std::string_view name) override;
  void characters(std::string_view text) override;
  void endElement(std::string_view name) override;
  void parseError(std::string_view message) override;

  const WrapperLogger& logger_;
  bool success_ = true;
  bool listed_ = false;  // a "PolicyMetadata" element has begun
  std::vector<Policy> policies_;
  std::optional<Policy> current_;
  std::optional<std::string> text_;  // of the "PolicyName" or "PolicyDefault" being read
};

}  // namespace tovrek
