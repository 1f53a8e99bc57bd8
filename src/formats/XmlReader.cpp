#include "formats/XmlReader.h"

#include <string>

#include "formats/xml_limits.h"
#include "formats/xml_parsing.h"

namespace tovrek {
namespace {

class Teller : public XmlReceiver {
 public:
  explicit Teller(XmlEvents& events) : events_(events) {}
  void startElement(std::string_view name, XmlAttributes /*attributes*/) override {
    events_.startElement(name);
  }
  void endElement(std::string_view name) override { events_.endElement(name); }
  void characters(std::string_view text) override { events_.characters(text); }

 private:
  XmlEvents& events_;
};

}  // namespace

bool readXml(std::string_view bytes, XmlEvents& events) {
  std::string fault = excessOfXml(bytes);
  if (fault.empty()) {
    Teller teller(events);
    fault = parseXml(bytes, XmlEntities::kOwn, limitsInForce(), teller);
  }
  if (fault.empty()) return true;
  events.parseError(fault);
  return false;
}

}  // namespace tovrek
