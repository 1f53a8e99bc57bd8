#include "formats/XmlReader.h"

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include <climits>
#include <memory>
#include <string>

#include "formats/libxml_strings.h"
#include "formats/xml_limits.h"

namespace tovrek {
namespace {

// Entities stand for text, over and over again: this much more than the document itself.
constexpr size_t kMostExpansion = size_t{16} << 20;

struct Reading {
  XmlEvents& events;
  size_t charactersLeft;
  std::string fault{};  // the first one
};

Reading& readingOf(void* context) {
  return *static_cast<Reading*>(static_cast<xmlParserCtxtPtr>(context)->_private);
}

XmlEvents& eventsOf(void* context) {
  return readingOf(context).events;
}

void stop(void* context, const char* fault) {
  Reading& reading = readingOf(context);
  if (reading.fault.empty()) reading.fault = fault;
  const auto parser = static_cast<xmlParserCtxtPtr>(context);
  parser->wellFormed = 0;
  xmlStopParser(parser);
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
  size_t& left = readingOf(context).charactersLeft;
  if (static_cast<size_t>(length) > left) return stop(context, "entities stand for too much text");
  left -= static_cast<size_t>(length);
  eventsOf(context).characters({reinterpret_cast<const char*>(text), static_cast<size_t>(length)});
}

// libxml2 would print the fault if there were no receiver.
void onError(void* context, xmlErrorPtr error) {
  std::string& fault = readingOf(context).fault;
  if (fault.empty()) fault = describeXmlError(error);
}

// What lies outside the document is not declared, and so never read.
void onEntityDeclaration(void* context, const xmlChar* name, int type, const xmlChar* publicId,
                         const xmlChar* systemId, xmlChar* content) {
  if (publicId != nullptr || systemId != nullptr) return;
  xmlSAX2EntityDecl(context, name, type, publicId, systemId, content);
}

// Comes only for what has no declaration.
void onReference(void* context, const xmlChar* /*name*/) {
  stop(context, "an entity has no declaration inside the document");
}

// Of the declarations those of entities are taken in.
xmlSAXHandler handlers() {
  xmlSAXHandler result = saxHandlers(onStart, onEnd, onCharacters, onError);
  result.startDocument = xmlSAX2StartDocument;
  result.internalSubset = xmlSAX2InternalSubset;
  result.entityDecl = onEntityDeclaration;
  result.getEntity = xmlSAX2GetEntity;
  result.reference = onReference;
  return result;
}

struct ContextFreer {
  void operator()(xmlParserCtxt* context) const noexcept {
    xmlFreeDoc(context->myDoc);  // made by libxml2 itself where entities are declared
    xmlFreeParserCtxt(context);
  }
};

}  // namespace

bool readXml(std::string_view bytes, XmlEvents& events) {
  if (const std::string excess = excessOfXml(bytes); !excess.empty()) {
    events.parseError(excess);
    return false;
  }
  // Pieces keep libxml2's sizes, which are ints, out of the question.
  constexpr size_t kPiece = size_t{1} << 20;
  xmlSAXHandler callbacks = handlers();
  Reading reading{events, bytes.size() * 2 + kMostExpansion};  // UTF-16 grows as UTF-8
  const std::unique_ptr<xmlParserCtxt, ContextFreer> context(
      xmlCreatePushParserCtxt(&callbacks, nullptr, nullptr, 0, nullptr));
  if (!context) {
    events.parseError("out of memory");
    return false;
  }
  context->_private = &reading;
  xmlCtxtUseOptions(context.get(), XML_PARSE_NONET | XML_PARSE_NOENT);
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
