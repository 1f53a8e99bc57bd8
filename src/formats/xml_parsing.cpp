#include "formats/xml_parsing.h"

#include <expat.h>

#include <algorithm>
#include <climits>
#include <memory>

#include "formats/xml_encoding.h"
#include "host/Freer.h"

namespace tovrek {
namespace {

// Lists have one attribute in their first element. expat goes through all that are declared for an
// element each time that the element comes.
constexpr size_t kMostDeclaredAttributes = 100;
// Entities stand for text, over and over again: this much more than the document itself.
constexpr size_t kMostExpansion = size_t{16} << 20;

// One document on its way through expat, up to the first fault.
class Reading {
 public:
  Reading(std::string_view utf8, XmlEntities entities, const Limits& limits, XmlReceiver& receiver)
      : document_(utf8),
        entities_(entities),
        limits_(limits),
        receiver_(receiver),
        charactersLeft_(utf8.size() + kMostExpansion),
        parser_(XML_ParserCreate("UTF-8")) {
    if (!parser_) {
      fault_ = "out of memory";
      return;
    }
    XML_Parser parser = parser_.get();
    XML_SetUserData(parser, this);
    XML_SetElementHandler(parser, onStart, onEnd);
    XML_SetCharacterDataHandler(parser, onCharacters);
    XML_SetAttlistDeclHandler(parser, onDeclaredAttribute);
    XML_SetSkippedEntityHandler(parser, onSkippedEntity);
    XML_SetExternalEntityRefHandlerArg(parser, this);
    XML_SetExternalEntityRefHandler(parser, onOutsideEntity);
    if (entities == XmlEntities::kNone) {
      // With a handler for all else expat replaces no entity that the document declares; it is
      // skipped, like one that nobody declared.
      XML_SetDefaultHandler(parser, [](void*, const XML_Char*, int) {});
      return;
    }
    XML_SetParamEntityParsing(parser, XML_PARAM_ENTITY_PARSING_ALWAYS);
    XML_SetCdataSectionHandler(parser, onCdata, onCdataEnd);
    XML_SetCommentHandler(parser, onComment);
    XML_SetProcessingInstructionHandler(parser, onInstruction);
    XML_SetDoctypeDeclHandler(parser, onType, onTypeEnd);
    XML_SetEntityDeclHandler(parser, onDeclaredEntity);
  }

  std::string read() {
    // Sizes are ints there.
    constexpr size_t kPiece = size_t{1} << 20;
    std::string_view left = document_;
    while (fault_.empty()) {
      const std::string_view piece = left.substr(0, kPiece);
      left.remove_prefix(piece.size());
      const XML_Status status = XML_Parse(parser_.get(), piece.data(),
                                          static_cast<int>(piece.size()), left.empty() ? 1 : 0);
      if (status != XML_STATUS_OK) stop(XML_ErrorString(XML_GetErrorCode(parser_.get())));
      if (left.empty()) break;
    }
    return fault_;
  }

 private:
  static Reading& of(void* data) { return *static_cast<Reading*>(data); }

  static void onStart(void* data, const XML_Char* name, const XML_Char** attributes) {
    Reading& self = of(data);
    const auto words = static_cast<size_t>(XML_GetSpecifiedAttributeCount(self.parser_.get()));
    if (words / 2 > self.limits_.xmlAttributes) self.stop("an element has too many attributes");
    if (self.entities_ != XmlEntities::kNone && ++self.elements_ > self.limits_.xmlTags) {
      self.stop("entities stand for too many elements");
    }
    self.tell([&](XmlReceiver& to) { to.startElement(name, {attributes, words}); });
  }
  static void onEnd(void* data, const XML_Char* name) {
    of(data).tell([&](XmlReceiver& to) { to.endElement(name); });
  }
  static void onCharacters(void* data, const XML_Char* text, int length) {
    const std::string_view characters(text, static_cast<size_t>(length));
    size_t& left = of(data).charactersLeft_;
    if (characters.size() > left) return of(data).stop("entities stand for too much text");
    left -= characters.size();
    of(data).tell([&](XmlReceiver& to) { to.characters(characters); });
  }
  static void onCdata(void* data) {
    of(data).tell([](XmlReceiver& to) { to.beginCdata(); });
  }
  static void onCdataEnd(void* data) {
    of(data).tell([](XmlReceiver& to) { to.endCdata(); });
  }
  static void onComment(void* data, const XML_Char* text) {
    of(data).tell([&](XmlReceiver& to) { to.comment(text); });
  }
  static void onInstruction(void* data, const XML_Char* target, const XML_Char* text) {
    of(data).tell([&](XmlReceiver& to) { to.instruction(target, text); });
  }

  static void onType(void* data, const XML_Char* name, const XML_Char* systemId,
                     const XML_Char* publicId, int hasDeclarations) {
    Reading& self = of(data);
    if (systemId != nullptr || publicId != nullptr) self.refuseOutside();
    self.type_ = "<!DOCTYPE " + std::string(name);
    if (hasDeclarations != 0) self.declarationsAt_ = self.at();
  }
  static void onTypeEnd(void* data) {
    Reading& self = of(data);
    if (self.declarationsAt_ != 0) {
      self.type_.append(" ").append(
          self.document_.substr(self.declarationsAt_, self.at() - self.declarationsAt_));
    }
    self.type_ += ">";
    self.tell([&](XmlReceiver& to) { to.documentType(self.type_); });
  }
  static void onDeclaredEntity(void* data, const XML_Char* /*name*/, int /*isParameter*/,
                               const XML_Char* /*value*/, int /*length*/, const XML_Char* /*base*/,
                               const XML_Char* systemId, const XML_Char* publicId,
                               const XML_Char* /*notation*/) {
    if (systemId != nullptr || publicId != nullptr) of(data).refuseOutside();
  }
  static void onDeclaredAttribute(void* data, const XML_Char* /*element*/,
                                  const XML_Char* /*attribute*/, const XML_Char* /*type*/,
                                  const XML_Char* /*value*/, int /*isRequired*/) {
    if (++of(data).declaredAttributes_ <= kMostDeclaredAttributes) return;
    of(data).stop("too many attributes are declared");
  }
  static void onSkippedEntity(void* data, const XML_Char* name, int isParameter) {
    if (isParameter == 0) of(data).stop("unknown entity " + std::string(name));
  }
  // The first argument is what was set for it, whatever its type. Without a context it is a set of
  // declarations, which can be done without.
  static int onOutsideEntity(XML_Parser argument, const XML_Char* context, const XML_Char* /*base*/,
                             const XML_Char* /*systemId*/, const XML_Char* /*publicId*/) {
    if (context == nullptr) return XML_STATUS_OK;
    of(argument).stop("an entity from outside of the document");
    return XML_STATUS_ERROR;
  }

  size_t at() const { return static_cast<size_t>(XML_GetCurrentByteIndex(parser_.get())); }

  void refuseOutside() {
    if (entities_ != XmlEntities::kOwnAlone) return;
    stop("a declaration of what lies outside the document is not accepted");
  }

  // Some events still come after a stop.
  void tell(const auto& event) {
    if (!fault_.empty()) return;
    event(receiver_);
    if (!receiver_.fault().empty()) stop(receiver_.fault());
  }
  void stop(const std::string& fault) {
    if (!fault_.empty()) return;
    fault_ = "line " + std::to_string(XML_GetCurrentLineNumber(parser_.get())) + ": " + fault;
    XML_StopParser(parser_.get(), XML_FALSE);
  }

  const std::string_view document_;
  const XmlEntities entities_;
  const Limits& limits_;
  XmlReceiver& receiver_;
  size_t charactersLeft_;
  std::unique_ptr<XML_ParserStruct, Freer<XML_ParserFree>> parser_;
  std::string fault_;
  uint64_t elements_ = 0;
  size_t declaredAttributes_ = 0;
  std::string type_;
  size_t declarationsAt_ = 0;  // in the document, where the document type has any
};

}  // namespace

std::string parseXml(std::string_view bytes, XmlEntities entities, const Limits& limits,
                     XmlReceiver& receiver) {
  if (bytes.size() > INT_MAX) return "it is too long";
  std::string storage;
  const auto utf8 = documentInUtf8(bytes, &storage);
  if (!utf8) {
    return "line 1: the text is not in the encoding that it declares, or nobody knows that one";
  }
  return Reading(*utf8, entities, limits, receiver).read();
}

}  // namespace tovrek
