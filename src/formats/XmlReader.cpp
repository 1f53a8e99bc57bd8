#include "formats/XmlReader.h"

#include <libxml/parser.h>

#include <climits>
#include <memory>
#include <string>

#include "formats/libxml_strings.h"

namespace tovrek {
namespace {

struct Reading {
  XmlEvents& events;
  std::string fault;  // the first one
};

XmlEvents& eventsOf(void* context) {
  return static_cast<Reading*>(context)->events;
}

std::string qualifiedName(const xmlChar* name, const xmlChar* prefix) {
  return prefix == nullptr ? fromXmlChars(name) : fromXmlChars(prefix) + ":" + fromXmlChars(name);
}

void onStart(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* /*uri*/,
             int /*namespaces*/, const xmlChar** /*namespaceList*/, int /*attributes*/,
             int /*defaulted*/, const xmlChar** /*attributeList*/) {
  eventsOf(context).startElement(qualifiedName(name, prefix));
}

void onEnd(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* /*uri*/) {
  eventsOf(context).endElement(qualifiedName(name, prefix));
}

void onCharacters(void* context, const xmlChar* text, int length) {
  eventsOf(context).characters({reinterpret_cast<const char*>(text), static_cast<size_t>(length)});
}

// libxml2 would print the fault if there were no receiver.
void onError(void* context, xmlErrorPtr error) {
  std::string& fault = static_cast<Reading*>(context)->fault;
  if (fault.empty()) fault = describeXmlError(error);
}

struct ContextFreer {
  void operator()(xmlParserCtxt* context) const noexcept {
    xmlFreeDoc(context->myDoc);  // made by libxml2 itself where entities are declared
    xmlFreeParserCtxt(context);
  }
};

}  // namespace

bool readXml(std::string_view bytes, XmlEvents& events) {
  // Pieces keep libxml2's sizes, which are ints, out of the question.
  constexpr size_t kPiece = size_t{1} << 20;
  xmlSAXHandler callbacks = saxHandlers(onStart, onEnd, onCharacters, onError);
  Reading reading{events, {}};
  const std::unique_ptr<xmlParserCtxt, ContextFreer> context(
      xmlCreatePushParserCtxt(&callbacks, &reading, nullptr, 0, nullptr));
  if (!context) {
    events.parseError("out of memory");
    return false;
  }
  xmlCtxtUseOptions(context.get(), XML_PARSE_NONET);
  while (!bytes.empty() && context->wellFormed == 1) {
    const std::string_view piece = bytes.substr(0, kPiece);
    xmlParseChunk(context.get(), piece.data(), static_cast<int>(piece.size()), 0);
    bytes.remove_prefix(piece.size());
  }
  if (context->wellFormed == 1) xmlParseChunk(context.get(), nullptr, 0, 1);
  if (context->wellFormed == 1) return true;
  events.parseError(reading.fault);
  return false;
}

}  // namespace tovrek
