#include "engine/MachORebuildErrors.h"

#include <array>

namespace tovrek {
namespace {

constexpr int32_t kFirstCode = 1100;

// One message per code from the first on. Users search their support pages for these texts, so
// they stay as they have always been, spacing and spelling included.
constexpr std::array<std::string_view, 88> kMessages = {
    // clang-format off
    "ERROR: Failed to open application binary image.",
    "ERROR: Failed to fstat application binary image.",
    "ERROR: Failed to mmap application binary image.",
    "ERROR: Unknown arch found in application binary image.",
    "ERROR: Slice in the application binary image doesn't define the correct cpu arch.",
    "ERROR: Failed to allocate memory for application binary image.",
    "ERROR: No room in header of application binary image to insert dylib reference.",
    "ERROR:  Size of Loader Cmds greater than file length of the application binary image.",
    "ERROR:  Mach Header contains Invalid Flag bits   in the application binary image.",
    "ERROR:  The  No Reexported Dylibs bit found in the application binary image.",
    "ERROR:  The MachO file type for the application binary image is not supported.",
    "ERROR: The LC_UNIXTHREAD loader command which is not supported in arm64 architecture w"
        "as found  in the application binary image.",
    "ERROR: A loader command size was found unaligned   in the application binary image.",
    "ERROR: A loader command extends past end of loader commands   in the application binar"
        "y image.",
    "ERROR: A loader command extends past end of file     in the application binary image.",
    "ERROR:  Unknown loader command found  in the application binary image.",
    "ERROR: The  LC_UNIXTHREAD loader command points to NonExecutable segment  in the appli"
        "cation binary image.",
    "ERROR:    in the application binary image.",
    "ERROR: The No Reexported Dylibs Bit found set in a SubUmbrella Library image.",
    "ERROR:  Invalid command size found on a segment loader command   in the application bi"
        "nary image.",
    "ERROR:  Loader segment command specify overlapping  Vm Addresses in the application bi"
        "nary image.",
    "ERROR:   Loader segment command specify overlapping  file offset   in the application "
        "binary image.",
    "ERROR:  Loader segment command file data greater than file length  in the application "
        "binary image.",
    "ERROR: Loader segment command file offset greater than file length  in the application"
        " binary image.",
    "ERROR:  Loader segment command file offset plus size greater than file length  in the "
        "application binary image.",
    "ERROR:  Loader section command specifies vm address not within the section's segment  "
        "in the application binary image.",
    "ERROR: Loader section command specifies file offset not within the section's segment  "
        "  in the application binary image.",
    "ERROR:  Required Link Edit command not found  in the application binary image.",
    "ERROR:  Required  Text segment command not found  in the application binary image.",
    "ERROR: The Text segment command init protection not  RX found   in the application bin"
        "ary image.",
    "ERROR: The text segment has non zero file offset  in the application binary image.",
    "ERROR: The text segment file size less than size of loader commands   in the applicati"
        "on binary image.",
    "ERROR: The LC_UNIXTHREAD specifies an initial stack ptr that is not within the stack s"
        "egment  in the application binary image.",
    "ERROR:  The LC_UNIXTHREAD specifies an initial SP that is not within the stack segment"
        "  in the application binary image.",
    "ERROR:  Task stack not specified as zero filled  in the application binary image.",
    "ERROR: Task stack too small in the application binary image.",
    "ERROR: Application entry point defined outside the Text segment   in the application b"
        "inary image.",
    "ERROR: Invalid mach header flag bits specified for a static executable   in the applic"
        "ation binary image.",
    "ERROR:  The LC_ENCRYPTION_INFO loader command only allowed in executable file image fo"
        "und  in the application binary image.",
    "ERROR: The LC_ENCRYPTION_INFO loader command  Crypto offset covers loader commands fou"
        "nd   in the application binary image.",
    "ERROR:  The LC_ENCRYPTION_INFO loader command  Crypto offset not aligned found  in the"
        " application binary image.",
    "ERROR:  The LC_ENCRYPTION_INFO loader command  Crypto offset not page sized found   in"
        " the application binary image.",
    "ERROR:  The LC_ENCRYPTION_INFO loader command  spanning more than one segment found   "
        "in the application binary image.",
    "ERROR: The symbol table not found in the Link Edit segment    in the application binar"
        "y image.",
    "ERROR:  The symbol table extends beyond the size of the Link Edit segment     in the a"
        "pplication binary image.",
    "ERROR:  The symbol table sym offset not pointer aligned  in the application binary ima"
        "ge.",
    "ERROR: The string pool not found in the Link Edit segment   in the application binary "
        "image.",
    "ERROR:  The string pool extends beyond end of Link Edit segment  in the application bi"
        "nary image.",
    "ERROR: The string pool string off value not pointer aligned   in the application binar"
        "y image.",
    "ERROR: The string pool string size value not multiple of pointer size.    in the appli"
        "cation binary image.",
    "ERROR:  Symbol Table missing  in the application binary image.",
    "ERROR: Dynamic Symbol Table missing   in the application binary image.",
    "ERROR:  CodeSign DRS not in Link Edit segment  in the application binary image.",
    "ERROR: CodeSign DRS not multiple pointer size     in the application binary image.",
    "ERROR:  CodeSign DRS not  pointer aligned     in the application binary image.",
    "ERROR:  DataInCode loader command not in Link Edit segment  in the application binary "
        "image.",
    "ERROR:   DataInCode loader command pointer not aligned  in the application binary imag"
        "e.",
    "ERROR:   DataInCode loader command not multiple of pointer size  in the application bi"
        "nary image.",
    "ERROR:  Function Starts loader command not in LinkEdit segment  in the application bin"
        "ary image.",
    "ERROR:  Function Starts loader command pointer not aligned  in the application binary "
        "image.",
    "ERROR:  Function Starts loader command not multiple of pointer size in the application"
        " binary image.",
    "ERROR:  Seg SplitInfo loader command not in Link Edit segment   in the application bin"
        "ary image.",
    "ERROR:   Seg SplitInfo loader command pointer not aligned  in the application binary i"
        "mage.",
    "ERROR:  Seg SplitInfo loader command not multiple pointer size in the application bina"
        "ry image.",
    "ERROR: Seg SplitInfo loader command not allowed in Static Executable  in the applicati"
        "on binary image.",
    "ERROR: Dynamic Symbol Table not allowed in Static Executable   in the application bina"
        "ry image.",
    "ERROR:  Dynamic Symbol Table Indirect not in Link Edit segment     in the application "
        "binary image.",
    "ERROR:  Dynamic Symbol Table Indirect not pointer aligned   in the application binary "
        "image.",
    "ERROR:  Dynamic Symbol Table local relocation not in Link Edit segment    in the appli"
        "cation binary image.",
    "ERROR: Dynamic Symbol Table local relocation not pointer aligned   in the application "
        "binary image.",
    "ERROR:  Dynamic Symbol Table external relocation not in Link Edit segment    in the ap"
        "plication binary image.",
    "ERROR:  Dynamic Symbol Table external relocation not pointer aligned  in the applicati"
        "on binary image.",
    "ERROR:  Symbol table segment index out of range  in the application binary image.",
    "ERROR:  External Relocation entries not sorted  in the application binary image.",
    "ERROR:  Local Relocation entries not used for Arm64 found   in the application binary "
        "image.",
    "ERROR:  Local relocation entry can not target wriable segment  in the application bina"
        "ry image.",
    "ERROR:   Local relocation entry has bad scattered length in the application binary ima"
        "ge.",
    "ERROR:  Local relocation entry has bad length   in the application binary image.",
    "ERROR:  Local relocation entry has unknown type  in the application binary image.",
    "ERROR: Local relocation entry has unknown scatter type    in the application binary im"
        "age.",
    "ERROR: Local relocation entry has non zero relative pc in the application binary image"
        ".",
    "ERROR:  Local relocation entry with eternal relocation  in the application binary imag"
        "e.",
    "ERROR:   External Relocation entries not used for Arm64 found   in the application bin"
        "ary image.",
    "ERROR:   application contains  multiple load commands for Nolvara wrapper dynamic libr"
        "ary - only one load command should be present.",
    "ERROR:   application contains  multiple load commands for Microsoft Intune dynamic lib"
        "rary - only one load command should be present.",
    "ERROR:  application binary is already linked to a dynamic Microsoft Intune dynamic lib"
        "rary so the application was either previously wrapped with Microsoft Intune technology"
        " or the application was linked with the Microsoft dynamic Intune framework SDK.   To w"
        "rap the application with  Nolvara full Wex technology, the application must be wrapped"
        " with Nolvara full Wex  and then wrapped with Microsoft Intune technology.   An applic"
        "ation can not be linked with the  Microsoft dynamic Intune framework SDK and  subseque"
        "ntly wrapped by Nolvara full Wex technology.\n.",
    "ERROR:   Nolvara and Intune SDK frameworks in wrong order -  This SDK application cont"
        "ains dynamic library reference to the Microsoft Intune dynamic library prior to the dy"
        "namic Nolvara Wex.framework SDK . The Nolvara Wex SDK framework must be linked prior t"
        "o the Intune SDK framework.  The application must be rebuilt with the SDK libraries li"
        "nked in the correct order.",
    "ERROR:   application contains  multiple load commands for Nolvara dynamic Wex.framewor"
        "k SDK library - only one load command should be present.",
    // clang-format on
};

}  // namespace

std::string_view messageFor(int32_t code) {
  const int64_t index = int64_t{code} - kFirstCode;
  if (index < 0 || index >= static_cast<int64_t>(kMessages.size())) return {};
  return kMessages[static_cast<size_t>(index)];
}

}  // namespace tovrek
