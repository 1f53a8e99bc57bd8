#include "engine/check_encryption.h"

#include "engine/MachORebuildErrors.h"
#include "macho/pointer_models.h"
#include "macho/rounding.h"

namespace tovrek::macho {
namespace {

using Errors = MachORebuildErrors;

constexpr uint32_t kEncryptionPage = 4096;

}  // namespace

template <class P>
void checkEncryption(const Image<P>& image, const AcceptanceRules& rules) {
  if (!image.pointers.encryption) return;
  const auto& encryption = image.pointers.encryption->record;
  const bool idle = rules.idleEncryptionInLibraries && encryption.cryptid == 0;
  if (image.header.filetype != MH_EXECUTE && !idle) throw Errors::kEncryptionNotExecutable;
  if (encryption.cryptoff < image.commandsEnd()) throw Errors::kEncryptionOverCommands;
  if (encryption.cryptoff % kEncryptionPage != 0) throw Errors::kEncryptionOffsetUnaligned;
  if (encryption.cryptsize % kEncryptionPage != 0) throw Errors::kEncryptionSizeUnaligned;
  const uint64_t end = uint64_t{encryption.cryptoff} + encryption.cryptsize;
  for (const Segment<P>& each : image.segments) {
    const macho_segment_command<P>& segment = each.record;
    if (isInside(encryption.cryptoff, segment.fileoff, segment.filesize) &&
        end > endOf(segment.fileoff, segment.filesize)) {
      throw Errors::kEncryptionSpansSegments;
    }
  }
}

#define TOVREK_INSTANTIATE(P) \
  template void checkEncryption<P>(const Image<P>&, const AcceptanceRules&);
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
