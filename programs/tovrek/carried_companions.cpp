// The companions that a conversion calls again and again, to be run by copies of this process. (Not
// zip and unzip: they are called three times, and need libraries that nothing else here loads.)
#include "programs/tovrek/carried_companions.h"

#include <openssl/err.h>
#include <openssl/rand.h>

#include <array>
#include <mutex>

#include "formats/Digest.h"
#include "host/own_programs.h"
#include "programs/codesign/Codesign.h"
#include "programs/lipo/Lipo.h"
#include "programs/nm/Nm.h"
#include "programs/openssl/Openssl.h"
#include "programs/otool/Otool.h"
#include "programs/security/security.h"

namespace tovrek::toolkit {
namespace {

// What went wrong before is not to be told as a reason of the program's.
template <ProgramRun Run>
int withoutEarlierErrors(const Arguments& arguments, const Streams& streams) {
  ERR_clear_error();
  return Run(arguments, streams);
}

// OpenSSL collects its algorithms, and seeds its generators, when they are asked for first; a copy
// finds them there. (Generators notice that they were copied, and are seeded anew.)
void prepareOpenssl() {
  static std::once_flag once;
  std::call_once(once, [] {
    // A copy that lacks something tells of it itself.
    unsigned char byte = 0;
    static_cast<void>(RAND_bytes(&byte, 1) == 1 && RAND_priv_bytes(&byte, 1) == 1);
    for (const DigestAlgorithm algorithm : {DigestAlgorithm::kSha1, DigestAlgorithm::kSha256}) {
      Digest(algorithm).finish();
    }
    ERR_clear_error();
  });
}

constexpr std::array<OwnProgram, 6> kPrograms = {{
    {withoutEarlierErrors<codesign::run>, codesign::kRules, prepareOpenssl},
    {lipo::run, lipo::kRules},
    {nm::run, nm::kRules},
    {withoutEarlierErrors<openssl::run>, openssl::kRules, prepareOpenssl},
    {otool::run, otool::kRules},
    {withoutEarlierErrors<security::run>, security::kRules, prepareOpenssl},
}};

}  // namespace

void bringCompanions() {
  setOwnPrograms(kPrograms);
}

}  // namespace tovrek::toolkit
