// Between libxml2's strings and ours; for the XML sources alone.
#pragma once

#include <libxml/parser.h>
#include <libxml/xmlerror.h>
#include <libxml/xmlstring.h>

#include <string>
#include <string_view>

#include "host/paths.h"

namespace tovrek {

inline const xmlChar* xmlChars(const std::string& text) {
  return reinterpret_cast<const xmlChar*>(text.c_str());
}

inline std::string fromXmlChars(const xmlChar* text) {
  return text == nullptr ? std::string() : reinterpret_cast<const char*>(text);
}

// "line 3: Opening and ending tag mismatch: a line 2 and b"; empty without a message.
inline std::string describeXmlError(const xmlError* error) {
  if (error == nullptr || error->message == nullptr) return {};
  const std::string message = trimmed(error->message);
  return error->line > 0 ? "line " + std::to_string(error->line) + ": " + message : message;
}

// Handlers for elements, all kinds of text, and errors. As they are, no declarations of any kind
// are taken in, so that there are no entities but the predefined ones.
inline xmlSAXHandler saxHandlers(startElementNsSAX2Func start, endElementNsSAX2Func end,
                                 charactersSAXFunc text, xmlStructuredErrorFunc error) {
  xmlSAXHandler handlers{};
  handlers.initialized = XML_SAX2_MAGIC;
  handlers.startElementNs = start;
  handlers.endElementNs = end;
  handlers.characters = handlers.ignorableWhitespace = handlers.cdataBlock = text;
  handlers.serror = error;
  return handlers;
}

}  // namespace tovrek
