// Which apps are to be signed anew, and with which profiles.
#include <fmt/format.h>

#include <algorithm>

#include "batch/Table.h"
#include "batch/renewal.h"
#include "host/paths.h"
#include "host/utf8.h"
#include "inspect/inspect.h"
#include "inspect/readers.h"
#include "inspect/text.h"

namespace tovrek::batch {
namespace {

constexpr double kSecondsOfDay = 86400;

// An app's tree, with that of the package whose bytes it may be made of.
struct AppTrees {
  std::unique_ptr<inspect::Tree> outer, app;
};

AppTrees openApp(const std::string& path, ErrorText* error) {
  AppTrees trees;
  const std::string extension = toLowerAscii(pathExtension(path));
  if (extension == "app") {
    trees.app = inspect::openFolder(path, error);
    return trees;
  }
  auto tree = inspect::openArchive(path, error);
  if (!tree || extension != "wex") {
    trees.app = std::move(tree);
    return trees;
  }
  trees.outer = std::move(tree);
  inspect::Findings findings;
  const inspect::Package package = inspect::readPackage(*trees.outer, &findings);
  if (package.appArchive.empty()) {
    fail(error, "the package holds no app");
    return trees;
  }
  auto contents = trees.outer->read(package.appArchive, inspect::kLargestItem, error);
  if (contents) trees.app = inspect::openArchive(std::move(*contents), error);
  return trees;
}

void noteEnd(double at, RenewalCandidate* candidate) {
  if (at == 0) return;
  candidate->ends = std::min(candidate->ends.value_or(at), at);
}

void takeCode(const inspect::CodeObject& code, RenewalCandidate* candidate) {
  const bool isApp = code.kind == inspect::CodeKind::kApp;
  if (isApp) candidate->identifier = code.identifier;
  if (code.kind == inspect::CodeKind::kExtension || code.kind == inspect::CodeKind::kWatchApp) {
    candidate->extensions.push_back(code.identifier);
  }
  if (code.profile) {
    noteEnd(code.profile->grants.expires, candidate);
    if (isApp) candidate->isForStore = code.profile->grants.isForStore();
  }
  for (const inspect::Slice& slice : code.slices) {
    if (!slice.signature || slice.signature->chain.empty()) continue;
    noteEnd(slice.signature->chain.front().notAfter(), candidate);
  }
}

std::string relativeTo(const std::string& folder, const std::string& path) {
  const std::string start = folder.ends_with('/') ? folder : folder + "/";
  return path.starts_with(start) ? path.substr(start.size()) : lastPathComponent(path);
}

class Planner {
 public:
  Planner(const RenewalOptions& options, const RenewalSupplies& supplies)
      : options_(options),
        supplies_(supplies),
        horizon_(supplies.now + options.within * kSecondsOfDay) {
    for (const device::StoredProfile& each : supplies.profiles) {
      if (each.profile.expires > horizon_) lasting_.push_back(each);
    }
  }

  RenewalPlan plan(const std::vector<RenewalCandidate>& candidates) {
    for (const RenewalCandidate& each : candidates) take(each);
    return std::move(plan_);
  }

 private:
  void take(const RenewalCandidate& app) {
    const auto leaveOut = [&](std::string reason) {
      plan_.leftOut.push_back({app.path, app.identifier, std::move(reason)});
    };
    if (!app.problem.empty()) return leaveOut(app.problem);
    if (!app.ends || *app.ends > horizon_) {
      ++plan_.upToDate;
      return;
    }
    const std::string extension = toLowerAscii(pathExtension(app.path));
    if (extension == "app") return leaveOut("it is a folder; pack it into an .ipa first");
    if (!isUtf8(app.path)) return leaveOut("a table cannot hold its name, which is not UTF-8");
    if (extension == "ipa" && app.isWrapped && !supplies_.signsWrapped) {
      return leaveOut("it is wrapped; signing it needs its package, or the setting resignWrapped");
    }
    const device::StoredProfile* profile = profileFor(app.identifier, app);
    if (profile == nullptr) {
      plan_.missing.push_back({app.path, app.identifier, ""});
      return;
    }
    for (const std::string& each : app.extensions) {
      if (profileFor(each, app) == nullptr) {
        plan_.missing.push_back({app.path, each, "an extension; the app itself is in the table"});
      }
    }
    const std::string output = joinPath(options_.output, relativeTo(options_.folder, app.path));
    plan_.rows.push_back({app.path, output, profile->path, app.identifier});
  }

  const device::StoredProfile* profileFor(const std::string& identifier,
                                          const RenewalCandidate& app) const {
    return device::bestProfile(lasting_,
                               {identifier, supplies_.isSigner, app.isForStore, supplies_.now});
  }

  const RenewalOptions& options_;
  const RenewalSupplies& supplies_;
  double horizon_;
  std::vector<device::StoredProfile> lasting_;
  RenewalPlan plan_;
};

}  // namespace

RenewalCandidate readCandidate(const std::string& path) {
  RenewalCandidate candidate;
  candidate.path = path;
  ErrorText error;
  const bool isFolder = toLowerAscii(pathExtension(path)) == "app";
  const AppTrees trees = openApp(path, &error);
  if (!trees.app) {
    candidate.problem = "it cannot be read: " + error.text();
    return candidate;
  }
  inspect::Findings findings;
  const auto folder =
      isFolder ? std::optional<std::string>("") : inspect::findApp(*trees.app, &findings);
  if (!folder) {
    candidate.problem = "it holds no app";
    return candidate;
  }
  const inspect::App app =
      inspect::readApp(*trees.app, *folder, lastPathComponent(*folder), &findings);
  candidate.isWrapped = app.isWrapped;
  for (const inspect::CodeObject& code : app.code) takeCode(code, &candidate);
  if (candidate.identifier.empty()) candidate.problem = "its app has no identifier";
  return candidate;
}

RenewalPlan planRenewal(const RenewalOptions& options, const RenewalSupplies& supplies,
                        const std::vector<RenewalCandidate>& candidates) {
  return Planner(options, supplies).plan(candidates);
}

std::string renewalTable(const RenewalOptions& options, const RenewalPlan& plan) {
  std::string table = fmt::format("#default command=Sign\n#default Cert={}\nname,in,out,Profile\n",
                                  options.certificate);
  for (const RenewalRow& row : plan.rows) {
    table += fmt::format("{},{},{},{}\n", csvCell(row.identifier), csvCell(row.input),
                         csvCell(row.output), csvCell(row.profile));
  }
  return table;
}

}  // namespace tovrek::batch
