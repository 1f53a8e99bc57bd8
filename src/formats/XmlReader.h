// Event-driven reading of XML: events in document order, up to the first fault.
#pragma once

#include <string_view>

namespace tovrek {

// What a reader is told. The default for every event is to ignore it.
class XmlEvents {
 public:
  virtual ~XmlEvents() = default;
  // Names as written, with their prefix.
  virtual void startElement(std::string_view /*name*/) {}
  // A piece of character data or CDATA; one text may come in several pieces.
  virtual void characters(std::string_view /*text*/) {}
  virtual void endElement(std::string_view /*name*/) {}
  // The document is not well formed; nothing follows. The message tells where and why.
  virtual void parseError(std::string_view /*message*/) {}
  // The document is not valid. This reader does not validate; the event is there for others.
  virtual void validationError(std::string_view /*message*/) {}
};

// Reads the whole document and reports to `events`. True when it is well formed. Nothing but
// the document is read: entities that it declares itself are replaced, all others are a fault.
bool readXml(std::string_view bytes, XmlEvents& events);

}  // namespace tovrek
