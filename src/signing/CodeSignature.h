// The signature that a piece of code carries.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "signing/CodeDirectory.h"
#include "signing/CodeFile.h"
#include "signing/CodeObject.h"

namespace tovrek::signing {

// The text for code without a signature.
inline constexpr const char* kNotSigned = "code object is not signed at all";

// One signature: that of one architecture, or of a bundle without Mach-O code. Views into the code
// file, which must outlive it.
class CodeSignature {
 public:
  // From a Mach-O image. None with kNotSigned, or with what is wrong.
  static std::optional<CodeSignature> embeddedIn(const MachOImage& image, ErrorText* error);
  // From the files that a bundle without Mach-O code keeps in its signature folder.
  static std::optional<CodeSignature> beside(const CodeObject& object, ErrorText* error);
  // Whichever of both applies, from the file's main image.
  static std::optional<CodeSignature> of(const CodeObject& object, const CodeFile& file,
                                         ErrorText* error);

  const std::vector<CodeDirectory>& directories() const { return directories_; }
  const CodeDirectory& primary() const { return directories_.front(); }
  const CodeDirectory& best() const { return bestOf(directories_); }
  // The whole blob; none when the signature has none.
  std::optional<std::string_view> component(uint32_t slot) const { return index_.find(slot); }
  // The entitlements' property list; none without.
  std::optional<std::string_view> entitlementsText() const;
  // The CMS; empty for ad-hoc signatures.
  std::string_view cms() const;
  bool isAdhoc() const { return (primary().info().flags & kAdhocFlag) != 0; }
  bool isLinkerSigned() const { return (primary().info().flags & kLinkerSignedFlag) != 0; }
  size_t length() const { return index_.length(); }
  bool isEmbedded() const { return storage_ == nullptr; }

 private:
  bool parse(std::string_view bytes, ErrorText* error);

  std::shared_ptr<const std::string> storage_;  // what beside() read
  SuperBlob index_;
  std::vector<CodeDirectory> directories_;
};

// Names of the files that hold a signature outside of Mach-O code, by slot.
struct SignatureFile {
  uint32_t slot;
  const char* name;
};
inline constexpr SignatureFile kSignatureFiles[] = {
    {kCodeDirectorySlot, "CodeDirectory"},
    {kRequirementsSlot, "CodeRequirements"},
    {kEntitlementsSlot, "CodeEntitlements"},
    {kAlternateCodeDirectorySlot, "CodeRequirements-1"},
    {kCmsSlot, "CodeSignature"},
};

}  // namespace tovrek::signing
