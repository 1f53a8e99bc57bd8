#include "programs/mend-xml/recovery.h"

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/xmlerror.h>

#include <climits>
#include <memory>

#include "formats/xml_limits.h"
#include "host/Freer.h"
#include "host/paths.h"

namespace tovrek::mend_xml {
namespace {

using ParserContext = std::unique_ptr<xmlParserCtxt, Freer<xmlFreeParserCtxt>>;
using Document = std::unique_ptr<xmlDoc, Freer<xmlFreeDoc>>;

// "line 3: Opening and ending tag mismatch: a line 2 and b"; empty without a message.
std::string describe(const xmlError* fault) {
  if (fault == nullptr || fault->message == nullptr) return {};
  const std::string message = trimmed(fault->message);
  return fault->line > 0 ? "line " + std::to_string(fault->line) + ": " + message : message;
}

struct Parsing {
  std::string fault{};   // the first one, which is the cause of those that follow it
  bool refused = false;  // what recovery must not get over
};

Parsing& parsingOf(void* context) {
  return *static_cast<Parsing*>(static_cast<xmlParserCtxtPtr>(context)->_private);
}

void refuse(void* context, std::string reason) {
  Parsing& parsing = parsingOf(context);
  if (!parsing.refused) parsing.fault = std::move(reason);
  parsing.refused = true;
}

void keepFirstFault(void* context, xmlErrorPtr fault) {
  Parsing& parsing = parsingOf(context);
  if (parsing.fault.empty()) parsing.fault = describe(fault);
  const std::string message = fault->message == nullptr ? "" : fault->message;
  if (message.find("Excessive depth") != std::string::npos || fault->code == XML_ERR_ENTITY_LOOP) {
    refuse(context, describe(fault));
  }
}

// Only what stands in the document itself is ever read.
void declareEntity(void* context, const xmlChar* name, int type, const xmlChar* publicId,
                   const xmlChar* systemId, xmlChar* content) {
  if (publicId != nullptr || systemId != nullptr) {
    return refuse(context, "a declaration of what lies outside the document is not accepted");
  }
  xmlSAX2EntityDecl(context, name, type, publicId, systemId, content);
}

void declareType(void* context, const xmlChar* name, const xmlChar* publicId,
                 const xmlChar* systemId) {
  if (publicId != nullptr || systemId != nullptr) {
    refuse(context, "a declaration of what lies outside the document is not accepted");
  }
  xmlSAX2InternalSubset(context, name, publicId, systemId);
}

// Without those attributes that the element has by declaration: they stand last, nothing asks for
// them, and in a tree every element would hold them once more.
void startElement(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri,
                  int namespaces, const xmlChar** namespaceList, int attributes, int defaulted,
                  const xmlChar** attributeList) {
  xmlSAX2StartElementNs(context, name, prefix, uri, namespaces, namespaceList,
                        attributes - defaulted, 0, attributeList);
}

// Without declarations: what they stand for is in its places. None when there is no memory for it.
std::optional<std::string> written(xmlDocPtr document) {
  if (xmlDtdPtr type = xmlGetIntSubset(document); type != nullptr) {
    xmlUnlinkNode(reinterpret_cast<xmlNodePtr>(type));
    xmlFreeDtd(type);
  }
  xmlChar* bytes = nullptr;
  int size = 0;
  xmlDocDumpFormatMemoryEnc(document, &bytes, &size, "UTF-8", 0);
  if (bytes == nullptr) return std::nullopt;
  std::string result(reinterpret_cast<const char*>(bytes), static_cast<size_t>(size));
  xmlFree(bytes);
  return result;
}

}  // namespace

std::optional<std::string> recoveredXml(std::string_view bytes, ErrorText* error) {
  const auto refused = [&](const std::string& reason) {
    fail(error, reason);
    return std::nullopt;
  };
  if (const std::string excess = excessOfXml(bytes); !excess.empty()) return refused(excess);
  const ParserContext context(xmlNewParserCtxt());
  if (!context || bytes.size() > INT_MAX) return refused("the document is too large");
  Parsing parsing;
  context->_private = &parsing;
  context->sax->serror = keepFirstFault;
  context->sax->entityDecl = declareEntity;
  context->sax->internalSubset = declareType;
  context->sax->startElementNs = startElement;
  constexpr int kOptions = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING |
                           XML_PARSE_NOENT | XML_PARSE_RECOVER;
  const Document document(xmlCtxtReadMemory(
      context.get(), bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr, kOptions));
  if (!document || xmlDocGetRootElement(document.get()) == nullptr || parsing.refused) {
    return refused(parsing.fault.empty() ? "the document is empty" : parsing.fault);
  }
  auto result = written(document.get());
  return result ? std::move(result) : refused("the document cannot be written");
}

}  // namespace tovrek::mend_xml
