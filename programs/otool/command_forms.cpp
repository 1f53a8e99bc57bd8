#include "programs/otool/command_forms.h"

#include "macho/layout.h"

namespace tovrek::otool {
namespace {

using enum FieldKind;

constexpr Field kSymtab[] = {
    {"symoff", kFileOffset}, {"nsyms", kTableEnd}, {"stroff", kFileOffset}, {"strsize", kFileEnd}};
constexpr Field kSymseg[] = {{"offset", kFileOffset}, {"size", kFileEnd}};
constexpr Field kDysymtab[] = {{"ilocalsym", kDecimal},         {"nlocalsym", kDecimal},
                               {"iextdefsym", kDecimal},        {"nextdefsym", kDecimal},
                               {"iundefsym", kDecimal},         {"nundefsym", kDecimal},
                               {"tocoff", kFileOffset},         {"ntoc", kDecimal},
                               {"modtaboff", kFileOffset},      {"nmodtab", kDecimal},
                               {"extrefsymoff", kFileOffset},   {"nextrefsyms", kDecimal},
                               {"indirectsymoff", kFileOffset}, {"nindirectsyms", kDecimal},
                               {"extreloff", kFileOffset},      {"nextrel", kDecimal},
                               {"locreloff", kFileOffset},      {"nlocrel", kDecimal}};
constexpr Field kDyldInfo[] = {{"rebase_off", kFileOffset},    {"rebase_size", kFileEnd},
                               {"bind_off", kFileOffset},      {"bind_size", kFileEnd},
                               {"weak_bind_off", kFileOffset}, {"weak_bind_size", kFileEnd},
                               {"lazy_bind_off", kFileOffset}, {"lazy_bind_size", kFileEnd},
                               {"export_off", kFileOffset},    {"export_size", kFileEnd}};
constexpr Field kDylib[] = {{"name", kText},
                            {"time stamp", kTime},
                            {"current version", kVersion, 21},
                            {"compatibility version", kVersion, 21}};
constexpr Field kFixedLibrary[] = {
    {"name", kText}, {"minor version", kDecimal}, {"header addr", kHex}};
constexpr Field kFixedFile[] = {{"name", kText}, {"header addr", kHex}};
constexpr Field kName[] = {{"name", kText}};
constexpr Field kPath[] = {{"path", kText}};
constexpr Field kUmbrella[] = {{"umbrella", kText}};
constexpr Field kSubUmbrella[] = {{"sub_umbrella", kText}};
constexpr Field kSubLibrary[] = {{"sub_library", kText}};
constexpr Field kClient[] = {{"client", kText}};
constexpr Field kRoutines[] = {{"init_address", kHex},  {"init_module", kDecimal},
                               {"reserved1", kDecimal}, {"reserved2", kDecimal},
                               {"reserved3", kDecimal}, {"reserved4", kDecimal},
                               {"reserved5", kDecimal}, {"reserved6", kDecimal}};
constexpr Field kRoutines64[] = {{"init_address", kHex64},  {"init_module", kDecimal64},
                                 {"reserved1", kDecimal64}, {"reserved2", kDecimal64},
                                 {"reserved3", kDecimal64}, {"reserved4", kDecimal64},
                                 {"reserved5", kDecimal64}, {"reserved6", kDecimal64}};
constexpr Field kHints[] = {{"offset", kFileOffset}, {"nhints", kDecimal}};
constexpr Field kChecksum[] = {{"cksum", kHex}};
constexpr Field kUuidField[] = {{"uuid", kUuid}};
constexpr Field kData[] = {{"dataoff", kFileOffset}, {"datasize", kFileEnd}};
constexpr Field kEncryption[] = {
    {"cryptoff", kFileOffset}, {"cryptsize", kFileEnd}, {"cryptid", kDecimal}};
constexpr Field kEncryption64[] = {
    {"cryptoff", kFileOffset}, {"cryptsize", kFileEnd}, {"cryptid", kDecimal}, {"pad", kDecimal}};
constexpr Field kVersionMin[] = {{"version", kShortVersion}, {"sdk", kSdkVersion}};
constexpr Field kMain[] = {{"entryoff", kDecimal64}, {"stacksize", kDecimal64}};
constexpr Field kSource[] = {{"version", kSourceVersion}};
constexpr Field kNote[] = {
    {"data_owner", kName16, 10}, {"offset", kDecimal64}, {"size", kDecimal64}};
constexpr Field kFileset[] = {
    {"vmaddr", kHexShort64}, {"fileoff", kDecimal64}, {"entry_id", kText}, {"reserved", kDecimal}};

constexpr uint32_t kDyld = macho::kRequiredByDyld;

constexpr CommandForm kForms[] = {
    {macho::LC_SYMTAB, "LC_SYMTAB", 8, kSymtab, true},
    {0x3, "LC_SYMSEG", 8, kSymseg, true},
    {0x6, "LC_LOADFVMLIB", 13, kFixedLibrary, false},
    {0x7, "LC_IDFVMLIB", 13, kFixedLibrary, false},
    {0x9, "LC_FVMFILE", 13, kFixedFile, false},
    {0xa, "LC_PREPAGE", 13, {}, false},
    {macho::LC_DYSYMTAB, "LC_DYSYMTAB", 15, kDysymtab, true},
    {macho::LC_LOAD_DYLIB, "LC_LOAD_DYLIB", 13, kDylib, false},
    {macho::LC_ID_DYLIB, "LC_ID_DYLIB", 13, kDylib, false},
    {macho::LC_LOAD_DYLINKER, "LC_LOAD_DYLINKER", 13, kName, false},
    {macho::LC_ID_DYLINKER, "LC_ID_DYLINKER", 13, kName, false},
    {macho::LC_ROUTINES, "LC_ROUTINES", 13, kRoutines, true},
    {macho::LC_SUB_FRAMEWORK, "LC_SUB_FRAMEWORK", 13, kUmbrella, false},
    {macho::LC_SUB_UMBRELLA, "LC_SUB_UMBRELLA", 13, kSubUmbrella, false},
    {macho::LC_SUB_CLIENT, "LC_SUB_CLIENT", 13, kClient, false},
    {macho::LC_SUB_LIBRARY, "LC_SUB_LIBRARY", 13, kSubLibrary, false},
    {macho::LC_TWOLEVEL_HINTS, "LC_TWOLEVEL_HINTS", 8, kHints, true},
    {macho::LC_PREBIND_CKSUM, "LC_PREBIND_CKSUM", 8, kChecksum, true},
    {macho::LC_LOAD_WEAK_DYLIB, "LC_LOAD_WEAK_DYLIB", 13, kDylib, false},
    {macho::LC_ROUTINES_64, "LC_ROUTINES_64", 13, kRoutines64, true},
    {macho::LC_UUID, "LC_UUID", 8, kUuidField, true},
    {macho::LC_RPATH, "LC_RPATH", 13, kPath, false},
    {macho::LC_CODE_SIGNATURE, "LC_CODE_SIGNATURE", 9, kData, true},
    {macho::LC_SEGMENT_SPLIT_INFO, "LC_SEGMENT_SPLIT_INFO", 9, kData, true},
    {macho::LC_REEXPORT_DYLIB, "LC_REEXPORT_DYLIB", 13, kDylib, false},
    {macho::LC_LAZY_LOAD_DYLIB, "LC_LAZY_LOAD_DYLIB", 13, kDylib, false},
    {macho::LC_ENCRYPTION_INFO, "LC_ENCRYPTION_INFO", 13, kEncryption, true},
    {macho::LC_DYLD_INFO, "LC_DYLD_INFO", 15, kDyldInfo, true},
    {macho::LC_DYLD_INFO_ONLY, "LC_DYLD_INFO_ONLY", 15, kDyldInfo, true},
    {macho::LC_LOAD_UPWARD_DYLIB, "LC_LOAD_UPWARD_DYLIB", 13, kDylib, false},
    {macho::LC_VERSION_MIN_MACOSX, "LC_VERSION_MIN_MACOSX", 9, kVersionMin, true},
    {macho::LC_VERSION_MIN_IPHONEOS, "LC_VERSION_MIN_IPHONEOS", 9, kVersionMin, true},
    {macho::LC_FUNCTION_STARTS, "LC_FUNCTION_STARTS", 9, kData, true},
    {macho::LC_DYLD_ENVIRONMENT, "LC_DYLD_ENVIRONMENT", 13, kName, false},
    {macho::LC_MAIN, "LC_MAIN", 10, kMain, true},
    {macho::LC_DATA_IN_CODE, "LC_DATA_IN_CODE", 9, kData, true},
    {macho::LC_SOURCE_VERSION, "LC_SOURCE_VERSION", 9, kSource, true},
    {macho::LC_DYLIB_CODE_SIGN_DRS, "LC_DYLIB_CODE_SIGN_DRS", 9, kData, true},
    {macho::LC_ENCRYPTION_INFO_64, "LC_ENCRYPTION_INFO_64", 13, kEncryption64, true},
    {0x2e, "LC_LINKER_OPTIMIZATION_HINT", 9, kData, true},
    {macho::LC_VERSION_MIN_TVOS, "LC_VERSION_MIN_TVOS", 9, kVersionMin, true},
    {macho::LC_VERSION_MIN_WATCHOS, "LC_VERSION_MIN_WATCHOS", 9, kVersionMin, true},
    {macho::LC_NOTE, "LC_NOTE", 10, kNote, true},
    {macho::LC_DYLD_EXPORTS_TRIE, "LC_DYLD_EXPORTS_TRIE", 9, kData, true},
    {macho::LC_DYLD_CHAINED_FIXUPS, "LC_DYLD_CHAINED_FIXUPS", 9, kData, true},
    {0x35 | kDyld, "LC_FILESET_ENTRY", 13, kFileset, false},
    {0x36, "LC_ATOM_INFO", 9, kData, true},
};

}  // namespace

const CommandForm* formOf(uint32_t cmd) {
  for (const CommandForm& form : kForms) {
    if (form.cmd == cmd) return &form;
  }
  return nullptr;
}

}  // namespace tovrek::otool
