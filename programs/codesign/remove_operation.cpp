// codesign --remove-signature.
#include "programs/codesign/Codesign.h"
#include "signing/SignatureOutput.h"

namespace tovrek::codesign {

int removeFrom(const std::string& path, const Options&, const Streams& streams) {
  ErrorText error;
  const auto object = signing::CodeObject::resolve(path, &error);
  const auto file = object ? signing::CodeFile::open(object->executable, &error) : std::nullopt;
  if (file && signing::removeSignatures(*object, *file, &error)) return kSuccess;
  return failPath(path, error.text(), streams);
}

}  // namespace tovrek::codesign
