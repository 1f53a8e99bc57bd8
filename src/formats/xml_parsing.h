// XML by events (expat), for all that reads it: property lists, documents, policies. Nothing but
// the given bytes is ever read.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "host/limits.h"

namespace tovrek {

// Which entities a document may use beside the five that all have.
enum class XmlEntities {
  kNone,
  // Those that it declares itself, which are replaced by what they stand for. What lies outside of
  // the document may be declared, but not used.
  kOwn,
  // The same, and what lies outside may not even be declared.
  kOwnAlone,
};

// Names and values in turn, each ended by a zero byte.
using XmlAttributes = std::span<const char* const>;

// Is told what a document holds, in its order, up to the first fault. Texts are UTF-8.
class XmlReceiver {
 public:
  XmlReceiver() = default;
  XmlReceiver(const XmlReceiver&) = delete;
  XmlReceiver& operator=(const XmlReceiver&) = delete;
  virtual ~XmlReceiver() = default;

  // Names as written, with their prefix. Attributes that the element has by declaration alone are
  // left out.
  virtual void startElement(std::string_view /*name*/, XmlAttributes /*attributes*/) {}
  virtual void endElement(std::string_view /*name*/) {}
  // A piece of character data; one text may come in several pieces.
  virtual void characters(std::string_view /*text*/) {}

  // Not told with XmlEntities::kNone.
  virtual void beginCdata() {}
  virtual void endCdata() {}
  virtual void comment(std::string_view /*text*/) {}
  virtual void instruction(std::string_view /*target*/, std::string_view /*text*/) {}
  // "<!DOCTYPE ...>", in one piece; without the name of what lies outside.
  virtual void documentType(std::string_view /*declaration*/) {}

  // Why the receiver wants no more; empty as long as it does.
  const std::string& fault() const { return fault_; }

 protected:
  void fail(std::string fault) {
    if (fault_.empty()) fault_ = std::move(fault);
  }

 private:
  std::string fault_;
};

// Reads the whole document, in any encoding that the C library knows. Empty when it is well formed
// and was taken, else a clause like "line 3: mismatched tag".
std::string parseXml(std::string_view bytes, XmlEntities entities, const Limits& limits,
                     XmlReceiver& receiver);

}  // namespace tovrek
