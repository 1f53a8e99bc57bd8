#include "engine/MachOChecker.h"

#include "engine/architectures.h"
#include "engine/check_header.h"
#include "engine/check_indirect_symbols.h"
#include "engine/check_init_terms.h"
#include "engine/check_library_order.h"
#include "engine/check_load_commands.h"
#include "engine/check_relocations.h"
#include "engine/check_symbols.h"
#include "engine/relocations.h"

namespace tovrek::macho {

template <class Arch>
void MachOChecker<Arch>::doCheck(ByteView bytes, const CheckOptions& options,
                                 const WrapperLogger& logger) {
  if (!validFile<Arch>(bytes)) throw MachORebuildErrors::kSliceMismatch;
  const Image<typename Arch::P> image(bytes);
  checkMachHeader(image, options.rules);
  const auto facts = checkLoadCommands<Arch>(image, options.rules, logger);
  checkOrderOfLoadDylibCommands(image, options.sdkOrder, options.libraryType);
  checkIndirectSymbolTable(image);
  checkRelocations<Arch>(image, facts);
  checkSymbolTable(image);
  checkInitTerms(image, facts, relocBase<Arch>(image, facts));
}

#define TOVREK_INSTANTIATE(Arch) template class MachOChecker<Arch>;
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
