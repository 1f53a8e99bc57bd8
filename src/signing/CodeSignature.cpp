#include "signing/CodeSignature.h"

#include "host/paths.h"

namespace tovrek::signing {

std::optional<CodeSignature> CodeSignature::embeddedIn(const MachOImage& image, ErrorText* error) {
  const auto area = signatureArea(image, error);
  CodeSignature signature;
  if (!area || !signature.parse(*area, error)) return std::nullopt;
  return signature;
}

std::optional<CodeSignature> CodeSignature::beside(const CodeObject& object, ErrorText* error) {
  std::map<uint32_t, std::string> blobs;
  for (const SignatureFile& file : kSignatureFiles) {
    std::string contents;
    const std::string path = joinPath(object.signatureFolder(), file.name);
    if (!object.isBundle() || !object.files->read(path, &contents)) continue;
    // The message stands in its file as it is.
    blobs[file.slot] = file.slot == kCmsSlot ? makeBlob(kWrapperMagic, contents) : contents;
  }
  if (blobs.count(kCodeDirectorySlot) == 0) {
    fail(error, kNotSigned);
    return std::nullopt;
  }
  CodeSignature signature;
  const auto storage =
      std::make_shared<const std::string>(makeSuperBlob(kEmbeddedSignatureMagic, blobs));
  signature.storage_ = storage;
  if (!signature.parse(*storage, error)) return std::nullopt;
  return signature;
}

std::optional<CodeSignature> CodeSignature::of(const CodeObject& object, const CodeFile& file,
                                               ErrorText* error) {
  return file.isMachO() ? embeddedIn(file.mainImage(), error) : beside(object, error);
}

bool CodeSignature::parse(std::string_view bytes, ErrorText* error) {
  auto index = SuperBlob::parse(bytes, kEmbeddedSignatureMagic, error);
  if (!index) return false;
  auto directories = codeDirectoriesOf(*index, error);
  if (!directories) return false;
  index_ = std::move(*index);
  directories_ = std::move(*directories);
  return true;
}

std::optional<std::string_view> CodeSignature::entitlementsText() const {
  const auto blob = component(kEntitlementsSlot);
  if (!blob || magicOf(*blob) != kEntitlementsMagic) return std::nullopt;
  return payloadOf(*blob);
}

std::string_view CodeSignature::cms() const {
  const auto blob = component(kCmsSlot);
  return blob && magicOf(*blob) == kWrapperMagic ? payloadOf(*blob) : std::string_view();
}

}  // namespace tovrek::signing
