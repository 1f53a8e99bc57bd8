#include "engine/file_insertion.h"

#include "engine/Insertion.h"
#include "engine/architectures.h"
#include "engine/check_library_order.h"
#include "engine/open_mapping.h"

namespace tovrek {

using macho::EditableByteView;
using macho::Image;
using macho::LibraryPaths;

void addDylib(int binaryType, const std::string& path, bool libraryType, Settings settings,
              const WrapperLogger& logger, bool announces) {
  const LibraryPaths* paths = macho::pathsFor(binaryType);
  EditedFile file;
  openForEditing(file, path);
  macho::visitArchOf(EditableByteView(file.bytes()), [&]<class Arch>() {
    using P = typename Arch::P;
    const Image<P> image{EditableByteView(file.bytes())};
    checkOrderOfLoadDylibCommands(image, false, libraryType);
    if (paths == nullptr) return;
    if (settings.strictHeaderRoom) checkHeaderRoom(image, *paths, path, logger);
    macho::Insertion<P>(file, path, logger,
                        {.place = announces, .room = settings.namesStrictHeaderRoom})
        .addDylibs(*paths);
  });
}

void checkInsertion(int binaryType, const std::string& path, bool libraryType,
                    const WrapperLogger& logger) {
  const LibraryPaths* paths = macho::pathsFor(binaryType);
  const MappedFile file = openForReading(path);
  const macho::ByteView bytes{file.bytes()};
  macho::visitArchOf(bytes, [&]<class Arch>() {
    const Image<typename Arch::P> image(bytes);
    checkOrderOfLoadDylibCommands(image, false, libraryType);
    if (paths != nullptr) checkHeaderRoom(image, *paths, path, logger);
  });
}

}  // namespace tovrek
