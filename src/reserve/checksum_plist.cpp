#include "reserve/checksum_plist.h"

#include "formats/PlistValue.h"

namespace tovrek {

bool GenerateChecksumPlistFile(const std::string& checksum, const std::string& key,
                               const std::string& path) {
  PlistDictionary dictionary;
  dictionary.set(key, checksum);
  return writePlist(path, dictionary, PlistFormat::kXml);
}

}  // namespace tovrek
