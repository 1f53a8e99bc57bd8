#include "tests/fuzz/documents_fuzzing.h"

#include <cstdlib>

#include "formats/PlistValue.h"
#include "formats/XmlDocument.h"
#include "formats/XmlReader.h"
#include "formats/cms_content.h"
#include "keychain/item_files.h"
#include "programs/mend-xml/recovery.h"
#include "signing/ResourceRules.h"
#include "signing/verify/SealRules.h"

namespace tovrek::test {
namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

class NoEvents : public XmlEvents {
 public:
  void startElement(std::string_view) override {}
  void endElement(std::string_view) override {}
  void characters(std::string_view) override {}
  void parseError(std::string_view message) override { require(!message.empty()); }
};

void checkRules(const PlistDictionary& rules) {
  const auto ours = signing::ResourceRules::fromPlist(rules);
  const auto judged = signing::SealRules::read(rules);
  require(!ours || judged);
  if (!ours) return;
  for (const char* path : {"Info.plist", "de.lproj/x.strings", "a\nb", "\xff", ""}) {
    ours->match(path);
    judged->mustList(path);
  }
}

void checkList(std::string_view bytes) {
  const auto value = parsePlist(bytes);
  if (!value) return;
  const std::string written = serializePlist(*value, PlistFormat::kBinary);
  const auto again = parsePlist(written);
  require(again && serializePlist(*again, PlistFormat::kBinary) == written);
  if (const PlistDictionary* rules = value->dictionary()) checkRules(*rules);
}

}  // namespace

void fuzzDocuments(std::string_view bytes) {
  checkList(bytes);
  NoEvents events;
  readXml(bytes, events);
  ErrorText error;
  if (const auto document = XmlDocument::parse(bytes, &error)) {
    require(document->find("/*/*[1]").has_value());
    const std::string written = document->serialize(XmlLayout::kCompact);
    const auto again = XmlDocument::parse(written, &error);
    require(again && again->serialize(XmlLayout::kCompact) == written);
  } else if (const auto mended = mend_xml::recoveredXml(bytes, nullptr)) {
    XmlDocument::parse(*mended);
  }
  cmsContent(bytes, nullptr);
  isDetached(bytes);
}

void fuzzKeyFile(std::string_view bytes) {
  keychain::Items items;
  keychain::readItems(bytes, "demo", &items);
}

}  // namespace tovrek::test
