#include "inspect/comparison.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

#include "formats/Digest.h"
#include "host/paths.h"
#include "inspect/readers.h"
#include "inspect/text.h"

namespace tovrek::inspect {
namespace {

using Facts = std::map<std::string, std::string>;

// Both sides of each fact; those alike are only counted.
ChangeGroup changesBetween(std::string title, const Facts& before, const Facts& after) {
  ChangeGroup group{.title = std::move(title)};
  std::set<std::string> names;
  for (const auto& [name, value] : before) names.insert(name);
  for (const auto& [name, value] : after) names.insert(name);
  for (const std::string& name : names) {
    const auto old = before.find(name), young = after.find(name);
    const bool wasThere = old != before.end(), isThere = young != after.end();
    if (wasThere && isThere && old->second == young->second) {
      ++group.unchanged;
    } else {
      group.changes.push_back({name, wasThere ? old->second : "", isThere ? young->second : ""});
    }
  }
  return group;
}

Facts identityOf(const App& app) {
  return {{"name", app.name},
          {"identifier", app.identifier},
          {"version", app.version},
          {"build", app.build},
          {"lowest system", app.minimumSystem},
          {"architectures", fmt::format("{}", fmt::join(app.architectures, ", "))}};
}

Facts valuesOf(const PlistDictionary& dictionary) {
  Facts facts;
  for (const auto& [key, value] : dictionary) facts[key] = valueText(value);
  return facts;
}

Facts entitlementsOf(const App& app) {
  for (const Slice& slice : app.main().slices) {
    if (slice.signature && slice.signature->entitlements) {
      return valuesOf(*slice.signature->entitlements);
    }
  }
  return {};
}

// Load commands by their words, told apart by number where several have the same.
Facts commandsOf(const App& app, const std::string& architecture) {
  Facts facts;
  for (const Slice& slice : app.main().slices) {
    if (slice.architecture != architecture) continue;
    for (const std::string& command : slice.commands) {
      std::string name = command;
      for (int i = 2; facts.contains(name); ++i) name = fmt::format("{} ({})", command, i);
      facts[name] = "present";
    }
  }
  return facts;
}

Facts iconsOf(const App& app) {
  Facts facts;
  for (const Icon& icon : app.icons) {
    facts[lastPathComponent(icon.path)] = fmt::format("{}x{}", icon.width, icon.height);
  }
  return facts;
}

class FileComparison {
 public:
  FileComparison(const ComparedApp& original, const ComparedApp& now, Findings* findings)
      : original_(original), now_(now), findings_(*findings) {}

  ChangeGroup run() {
    ChangeGroup group{.title = "Files"};
    for (const Tree::Item& item : original_.tree.below(original_.folder)) {
      const std::string path = relative(item, original_);
      const Tree::Item* other = now_.tree.find(joinPath(now_.folder, path));
      if (other == nullptr) {
        group.changes.push_back({path, sizeText(item.size), ""});
        if (!mayGo(path)) unexpected(path, "the file is gone");
      } else if (isSame(item, *other)) {
        ++group.unchanged;
      } else {
        group.changes.push_back({path, sizeText(item.size), sizeText(other->size)});
        judgeChange(path, item, *other);
      }
    }
    for (const Tree::Item& item : now_.tree.below(now_.folder)) {
      const std::string path = relative(item, now_);
      if (original_.tree.find(joinPath(original_.folder, path)) != nullptr) continue;
      group.changes.push_back({path, "", sizeText(item.size)});
    }
    return group;
  }

 private:
  static std::string relative(const Tree::Item& item, const ComparedApp& side) {
    return side.folder.empty() ? item.path : item.path.substr(side.folder.size() + 1);
  }

  bool isSame(const Tree::Item& a, const Tree::Item& b) const {
    if (a.kind != b.kind || a.size != b.size) return false;
    const auto left = original_.tree.read(a), right = now_.tree.read(b);
    return left && right && left->text() == right->text();
  }

  // Extensions are stripped on request, signatures are made anew.
  static bool mayGo(const std::string& path) {
    return path.starts_with("PlugIns/") || path.starts_with("Watch/") || isOfSignature(path);
  }

  static bool isOfSignature(const std::string& path) {
    return path.find("_CodeSignature/") != std::string::npos || path == "CodeResources" ||
           path == "ResourceRules.plist" || path == "orig-entitlements.plist";
  }

  static bool mayChange(const std::string& path) {
    return path == "Info.plist" || path.ends_with("embedded.mobileprovision") ||
           path == "Orvane.plist" || path.starts_with("OrvaneDylib.bundle/") ||
           path.starts_with("Frameworks/OrvaneLogger.framework/") ||
           path.find("policies") != std::string::npos || mayGo(path);
  }

  // A signature changes code files, but nothing that runs.
  void judgeChange(const std::string& path, const Tree::Item& before, const Tree::Item& after) {
    if (mayChange(path)) return;
    const auto left = original_.tree.read(before), right = now_.tree.read(after);
    if (!left || !right || !looksLikeCode(left->text()) || !looksLikeCode(right->text())) {
      return unexpected(path, "the contents differ");
    }
    const auto old = codeDigests(left->text());
    for (const auto& [architecture, digest] : codeDigests(right->text())) {
      const auto known = old.find(architecture);
      if (known == old.end()) {
        unexpected(path, fmt::format("the {} slice is new", architecture));
      } else if (known->second != digest) {
        unexpected(path, fmt::format("code or data of the {} slice differ", architecture));
      }
    }
  }

  void unexpected(const std::string& path, std::string what) {
    report(&findings_, "unexpected-change", joinPath(now_.app.folder, path), std::move(what));
  }

  const ComparedApp& original_;
  const ComparedApp& now_;
  Findings& findings_;
};

}  // namespace

Comparison compare(const ComparedApp& original, const ComparedApp& now, Findings* findings) {
  Comparison comparison;
  const PlistDictionary none;
  comparison.push_back(changesBetween("App", identityOf(original.app), identityOf(now.app)));
  comparison.push_back(changesBetween("Info.plist",
                                      valuesOf(original.app.main().info.value_or(none)),
                                      valuesOf(now.app.main().info.value_or(none))));
  comparison.push_back(
      changesBetween("Entitlements", entitlementsOf(original.app), entitlementsOf(now.app)));
  std::set<std::string> architectures(original.app.architectures.begin(),
                                      original.app.architectures.end());
  architectures.insert(now.app.architectures.begin(), now.app.architectures.end());
  for (const std::string& architecture : architectures) {
    comparison.push_back(changesBetween("Load commands, " + architecture,
                                        commandsOf(original.app, architecture),
                                        commandsOf(now.app, architecture)));
  }
  comparison.push_back(changesBetween("Icons", iconsOf(original.app), iconsOf(now.app)));
  comparison.push_back(FileComparison(original, now, findings).run());
  return comparison;
}

}  // namespace tovrek::inspect
