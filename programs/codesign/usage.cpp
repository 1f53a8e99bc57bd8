// What codesign says about its command line.
#include "programs/codesign/Options.h"

namespace tovrek::codesign {

const char* const kUsage =
    "Usage: codesign -s identity [-fv] [-i identifier] [-o flags] [-r requirements] [--keychain "
    "keychain] [--entitlements file] [--preserve-metadata=list] path ... # sign\n"
    "       codesign -v [-v] [--strict] [-R requirement] path ... # verify\n"
    "       codesign -d [-v] [--entitlements [:]file] [-r file] [--extract-certificates] path ... "
    "# display contents\n"
    "       codesign --remove-signature path ...\n";

const char* const kHelp =
    "\n"
    "Signing:\n"
    "  -s, --sign IDENTITY       SHA-1 of a certificate, its name or a part of it, or - for "
    "ad-hoc\n"
    "  -f, --force               replace an existing signature\n"
    "  -i, --identifier ID       instead of the one that Info.plist or the file name gives\n"
    "      --prefix TEXT         in front of an identifier without a period\n"
    "  -o, --options FLAGS       comma-separated: runtime, library, hard, kill, ... or a number\n"
    "  -r, --requirements R      internal requirements: =TEXT, a file, or - for standard input\n"
    "  -P, --pagesize BYTES      a power of two from 4096 (the default) to 65536\n"
    "  -n, --dryrun              do all but the writing\n"
    "      --digest-algorithm A  sha1, sha256 or both; by default what the target system needs\n"
    "      --entitlements FILE   property list to embed into executables\n"
    "      --keychain KEYCHAIN   where to look for the identity, instead of the search list\n"
    "      --preserve-metadata[=LIST]\n"
    "                            take over from the old signature: identifier, requirements,\n"
    "                            entitlements, resource-rules, flags, runtime, team-identifier\n"
    "      --resource-rules FILE rules that say which files to seal\n"
    "      --runtime-version V   of the hardened runtime, with -o runtime\n"
    "      --timestamp=none      without a time stamp, which is always so here\n"
    "Verifying:\n"
    "  -v, --verify              further -v tell more\n"
    "      --strict              also refuse what cautious systems do not load\n"
    "  -R, --test-requirement R  that the code has to satisfy: =TEXT, a file, or -\n"
    "Displaying:\n"
    "  -d, --display             -v to -vvvvvv tell more\n"
    "  -r, --requirements FILE   write the internal requirements there, or to - for the output\n"
    "      --entitlements FILE   write the entitlements there; with : in front, without header\n"
    "      --extract-certificates[=PREFIX]\n"
    "                            write the certificates to PREFIX0, PREFIX1, ...\n"
    "Always:\n"
    "  -a, --architecture NAME   of a universal file, this one (verifying and displaying)\n"
    "      --continue            go on with the next path after a failure\n"
    "      --help                show this\n"
    "\n"
    "Status: 0 success, 1 failure, 2 bad usage, 3 a requirement is not satisfied.\n";

}  // namespace tovrek::codesign
