#include "batch/renewal.h"

#include <fmt/format.h>

#include <algorithm>

#include "batch/Progress.h"
#include "host/clock.h"
#include "host/files.h"
#include "host/parallel.h"
#include "host/paths.h"
#include "inspect/inspect.h"
#include "keychain/identities.h"
#include "keychain/locations.h"
#include "settings/settings_file.h"

namespace tovrek::batch {
namespace {

bool isDigest(const std::string& text) {
  constexpr size_t kDigits = 40;
  return text.size() == kDigits &&
         text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

class Renewal {
 public:
  Renewal(const RenewalOptions& options, RunOptions run, const Console& console)
      : options_(options), run_(std::move(run)), console_(console) {
    if (run_.table.empty()) run_.table = joinPath(options.output, "renew.csv");
  }

  int renew(bool runs) {
    ErrorText error;
    if (!gatherSupplies(&error)) return cannot(error.text());
    const auto candidates = readCandidates(&error);
    if (!candidates) return cannot(error.text());
    plan_ = planRenewal(options_, supplies_, *candidates);
    tell();
    const bool lacks = !plan_.missing.empty() || !plan_.leftOut.empty();
    if (plan_.rows.empty()) return lacks ? kNotAll : kAllDone;
    if (!write(&error)) return cannot(error.text());
    if (!runs) {
      console_.streams.out(
          fmt::format("The table is {0}; Batch run {0} runs it.\n", oneLine(run_.table)));
      return lacks ? kNotAll : kAllDone;
    }
    const int status = runTable(run_, console_);
    return status == kAllDone && lacks ? kNotAll : status;
  }

 private:
  int cannot(const std::string& reason) {
    console_.streams.error(fmt::format("Batch: {}\n", oneLine(reason)));
    return kCannotRun;
  }

  bool gatherSupplies(ErrorText* error) {
    supplies_.now = currentTime();
    const std::string& certificate = options_.certificate;
    // It becomes a line of the table.
    if (certificate.find_first_of("\r\n") != std::string::npos ||
        trimmed(certificate) != certificate) {
      return fail(error, "--cert has blanks at its ends, or several lines");
    }
    Settings settings;
    if (!readSettings(&settings, error) || !findSigner(error)) return false;
    supplies_.signsWrapped = settings.resignWrapped;
    std::vector<std::string> unreadable;
    ErrorText reason;
    if (!device::readProfiles(options_.profiles, &supplies_.profiles, &unreadable, &reason)) {
      return fail(error, fmt::format("{}: {}", options_.profiles, reason.text()));
    }
    for (const std::string& each : unreadable) {
      console_.streams.error(fmt::format("Batch: {}\n", oneLine(each)));
    }
    return true;
  }

  // The certificate of the keychain; where the keys are on other hosts, whatever has the name.
  bool findSigner(ErrorText* error) {
    const std::string wanted = options_.certificate;
    if (run_.hosts) {
      supplies_.isSigner = [wanted](const Certificate& each) {
        return each.inferredLabel() == wanted || equalsIgnoringCase(each.sha1Hex(), wanted);
      };
      return true;
    }
    std::vector<keychain::Keychain> keychains;
    if (options_.keychain) {
      auto named = keychain::openKeychain(*options_.keychain, error);
      if (!named) return false;
      keychains.push_back(std::move(*named));
    } else {
      keychains = keychain::openSearchList();
    }
    const auto found = keychain::findSigningIdentity(keychains, wanted);
    if (found.outcome != keychain::Lookup::kFound) {
      return fail(error, found.text + (found.detail.empty() ? "" : "; " + found.detail));
    }
    // A part of a name finds an identity too, but the commands want all of it.
    if (!isDigest(wanted) && found.identity->leaf.inferredLabel() != wanted) {
      return fail(error, fmt::format("--cert has to be the whole name: {}",
                                     found.identity->leaf.inferredLabel()));
    }
    supplies_.isSigner = [sha1 = found.identity->leaf.sha1()](const Certificate& each) {
      return each.sha1() == sha1;
    };
    return true;
  }

  std::optional<std::vector<RenewalCandidate>> readCandidates(ErrorText* error) {
    ErrorText reason;
    auto inputs = inspect::inputsIn(options_.folder, &reason);
    if (!inputs) {
      fail(error, fmt::format("{}: {}", options_.folder, reason.text()));
      return std::nullopt;
    }
    // What an earlier renewal has made may lie in the same folder.
    const std::string own = options_.output + "/";
    std::erase_if(*inputs, [&](const std::string& path) {
      const std::string extension = toLowerAscii(pathExtension(path));
      const bool isApp = extension == "ipa" || extension == "wex" || extension == "app";
      return !isApp || path.starts_with(own) || path.find("/.batch-") != path.npos;
    });
    std::vector<RenewalCandidate> candidates(inputs->size());
    forEachPart(inputs->size(), 1, [&](size_t begin, size_t end) {
      for (size_t i = begin; i < end; ++i) candidates[i] = readCandidate((*inputs)[i]);
    });
    return candidates;
  }

  void tell() const {
    const auto list = [&](const char* title, const std::vector<RenewalLack>& lacks) {
      if (lacks.empty()) return;
      console_.streams.out(fmt::format("{}\n", title));
      for (const RenewalLack& each : lacks) {
        console_.streams.out(fmt::format("  {}{}{}{}{}\n", oneLine(each.identifier),
                                         each.identifier.empty() ? "" : "  ", oneLine(each.path),
                                         each.reason.empty() ? "" : ": ", oneLine(each.reason)));
      }
    };
    list("To ask for at the portal, as no profile for it lasts and lists the certificate:",
         plan_.missing);
    list("Left out:", plan_.leftOut);
    console_.streams.out(fmt::format("{} to be signed anew, {} need not be, {} without a profile\n",
                                     plan_.rows.size(), plan_.upToDate, plan_.missing.size()));
  }

  bool write(ErrorText* error) const {
    ErrorText reason;
    for (const RenewalRow& row : plan_.rows) {
      if (!createDirectories(containingFolder(row.output), &reason)) {
        return fail(error, fmt::format("{}: {}", containingFolder(row.output), reason.text()));
      }
    }
    return writeFileAtomically(run_.table, renewalTable(options_, plan_), &reason) ||
           fail(error, fmt::format("{}: {}", run_.table, reason.text()));
  }

  const RenewalOptions& options_;
  RunOptions run_;
  const Console& console_;
  RenewalSupplies supplies_;
  RenewalPlan plan_;
};

}  // namespace

int renew(const RenewalOptions& options, RunOptions run, bool runs, const Console& console) {
  return Renewal(options, std::move(run), console).renew(runs);
}

}  // namespace tovrek::batch
