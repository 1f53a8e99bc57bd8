#include "formats/XmlDocument.h"

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <algorithm>
#include <cassert>
#include <climits>

#include "formats/XmlNodeAccess.h"
#include "formats/libxml_strings.h"
#include "formats/xml_limits.h"
#include "host/Freer.h"
#include "host/files.h"

namespace tovrek {
namespace {

using ParserContext = std::unique_ptr<xmlParserCtxt, Freer<xmlFreeParserCtxt>>;
using XPathContext = std::unique_ptr<xmlXPathContext, Freer<xmlXPathFreeContext>>;
using XPathResult = std::unique_ptr<xmlXPathObject, Freer<xmlXPathFreeObject>>;

xmlDocPtr docOf(void* document) {
  return static_cast<xmlDocPtr>(document);
}

// libxml2 prints to standard error where no receiver is given.
void ignoreXPathError(void* /*context*/, xmlErrorPtr /*error*/) {}

struct Parsing {
  std::string fault;     // the first one, which is the cause of those that follow it
  bool refused = false;  // what recovery must not get over by leaving things out
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
  if (parsing.fault.empty()) parsing.fault = describeXmlError(fault);
  const std::string message = fault->message == nullptr ? "" : fault->message;
  if (message.find("Excessive depth") != std::string::npos || fault->code == XML_ERR_ENTITY_LOOP) {
    refuse(context, describeXmlError(fault));
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

}  // namespace

void XmlDocument::Freed::operator()(void* document) const noexcept {
  xmlFreeDoc(docOf(document));
}

std::optional<XmlDocument> XmlDocument::parse(std::string_view bytes, XmlParsing mode,
                                              ErrorText* error) {
  if (const std::string excess = excessOfXml(bytes); !excess.empty()) {
    fail(error, excess);
    return std::nullopt;
  }
  const ParserContext context(xmlNewParserCtxt());
  if (!context || bytes.size() > INT_MAX) {
    fail(error, "the document is too large");
    return std::nullopt;
  }
  Parsing parsing;
  context->_private = &parsing;
  context->sax->serror = keepFirstFault;
  context->sax->entityDecl = declareEntity;
  context->sax->internalSubset = declareType;
  context->sax->startElementNs = startElement;
  int options = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_NOENT;
  if (mode == XmlParsing::kRecover) options |= XML_PARSE_RECOVER;
  XmlDocument result(xmlCtxtReadMemory(context.get(), bytes.data(), static_cast<int>(bytes.size()),
                                       nullptr, nullptr, options));
  const xmlDocPtr document = docOf(result.document_.get());
  if (document == nullptr || xmlDocGetRootElement(document) == nullptr || parsing.refused) {
    fail(error, parsing.fault.empty() ? "the document is empty" : parsing.fault);
    return std::nullopt;
  }
  return result;
}

std::optional<XmlDocument> XmlDocument::readFile(const std::string& path, ErrorText* error) {
  std::string bytes;
  if (!tovrek::readFile(path, &bytes, error)) return std::nullopt;
  if (auto document = parse(bytes, XmlParsing::kStrict, error)) return document;
  return parse(bytes, XmlParsing::kRecover, error);
}

XmlDocument::XmlDocument(const XmlElement& root) : document_(xmlNewDoc(xmlChars("1.0"))) {
  assert(isXmlName(root.name));
  const xmlDocPtr document = docOf(document_.get());
  xmlNodePtr node = xmlNewDocNode(document, nullptr, xmlChars(root.name), nullptr);
  xmlDocSetRootElement(document, node);
  fillElement(node, root);
}

XmlNode XmlDocument::root() const {
  return XmlNode(xmlDocGetRootElement(docOf(document_.get())));
}

std::optional<std::vector<XmlNode>> XmlDocument::find(const std::string& xpath) const {
  const xmlDocPtr document = docOf(document_.get());
  const XPathContext context(xmlXPathNewContext(document));
  if (!context) return std::nullopt;
  context->node = reinterpret_cast<xmlNodePtr>(document);
  context->error = ignoreXPathError;
  const XPathResult result(xmlXPathEvalExpression(xmlChars(xpath), context.get()));
  if (!result || result->type != XPATH_NODESET) return std::nullopt;
  std::vector<XmlNode> nodes;
  if (result->nodesetval == nullptr) return nodes;
  xmlXPathNodeSetSort(result->nodesetval);
  for (int i = 0; i < result->nodesetval->nodeNr; ++i) {
    xmlNodePtr node = result->nodesetval->nodeTab[i];
    // The document itself and namespaces are no nodes that could be edited.
    const bool editable = node->type == XML_ELEMENT_NODE || node->type == XML_ATTRIBUTE_NODE ||
                          node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE;
    if (editable) nodes.push_back(XmlNode(node));
  }
  return nodes;
}

std::string XmlDocument::serialize(XmlLayout layout) const {
  const xmlDocPtr document = docOf(document_.get());
  if (fromXmlChars(document->version) != "1.0") {
    xmlFree(const_cast<xmlChar*>(document->version));
    document->version = xmlStrdup(xmlChars("1.0"));
  }
  // The indentation is a setting of the thread.
  const char* const indentBefore = xmlTreeIndentString;
  xmlTreeIndentString = "    ";
  xmlChar* bytes = nullptr;
  int size = 0;
  xmlDocDumpFormatMemoryEnc(document, &bytes, &size, "UTF-8",
                            layout == XmlLayout::kIndented ? 1 : 0);
  xmlTreeIndentString = indentBefore;
  const std::string result(reinterpret_cast<const char*>(bytes), static_cast<size_t>(size));
  xmlFree(bytes);
  return result;
}

bool XmlDocument::save(const std::string& path, XmlLayout layout, ErrorText* error) const {
  return writeFileAtomically(path, serialize(layout), error);
}

}  // namespace tovrek
