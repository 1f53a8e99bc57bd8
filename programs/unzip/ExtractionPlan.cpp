#include "programs/unzip/ExtractionPlan.h"

#include <fmt/format.h>

#include <algorithm>
#include <iostream>
#include <unordered_map>
#include <unordered_set>

#include "host/paths.h"
#include "host/printable.h"

namespace tovrek::unzip {
namespace {

using archive::Entry;
using Existing = UnzipOptions::Existing;

class Planner {
 public:
  Planner(const UnzipOptions& options, const Streams& streams, FolderCursor* destination,
          ExtractionPlan* plan)
      : options_(options),
        streams_(streams),
        existing_(options.existing),
        destination_(*destination),
        plan_(*plan) {}

  bool add(const Entry& entry, ErrorText* error) {
    PlannedItem item{&entry};
    if (!destinationPath(entry.name, &item.path)) {
      return fail(error, fmt::format("{} would leave the destination", printable(entry.name)));
    }
    if (entry.isFolder()) {
      if (!options_.junkPaths && !item.path.empty()) plan_.folders.push_back(std::move(item));
      return true;
    }
    if (options_.junkPaths) item.path = nameOf(item.path);
    if (item.path.empty()) {
      return fail(error, fmt::format("{} is no name for a file", printable(entry.name)));
    }
    const auto earlier = taken_.find(item.path);
    if (earlier != taken_.end() || stands(item.path)) {
      if (plan_.endedByInput || !mayReplace(item.path)) return true;
      item.replace = true;
      if (earlier != taken_.end()) forget(earlier->second);
    }
    std::vector<PlannedItem>& list = entry.isLink() ? plan_.links : plan_.files;
    taken_[item.path] = {&list, list.size()};
    list.push_back(std::move(item));
    return true;
  }

  // Drops what later entries of the same name replace, and checks that no entry lies below a link.
  bool finish(ErrorText* error) {
    // Outer folders first, whatever their order in the archive.
    std::ranges::stable_sort(plan_.folders, {}, &PlannedItem::path);
    std::unordered_set<std::string> links;
    for (std::vector<PlannedItem>* list : {&plan_.folders, &plan_.files, &plan_.links}) {
      std::erase_if(*list, [](const PlannedItem& item) { return item.entry == nullptr; });
    }
    for (const PlannedItem& link : plan_.links) links.insert(link.path);
    if (links.empty()) return true;
    return passesNoLink(plan_.folders, links, error) && passesNoLink(plan_.files, links, error) &&
           passesNoLink(plan_.links, links, error);
  }

 private:
  struct Place {
    std::vector<PlannedItem>* list;
    size_t index;
  };

  static bool passesNoLink(const std::vector<PlannedItem>& items,
                           const std::unordered_set<std::string>& links, ErrorText* error) {
    for (const PlannedItem& item : items) {
      const bool isFolder = item.entry->isFolder();
      for (std::string path = isFolder ? item.path : folderOf(item.path); !path.empty();
           path = folderOf(path)) {
        if (!links.contains(path)) continue;
        return fail(error, fmt::format("{} would be written through the symbolic link {}",
                                       printable(item.entry->name), printable(path)));
      }
    }
    return true;
  }

  static void forget(const Place& place) { (*place.list)[place.index].entry = nullptr; }

  bool stands(const std::string& path) {
    const std::string parent = folderOf(path);
    if (!missing_.empty() && parent == missing_) return false;
    if (destination_.enter(parent, false)) return destination_.has(nameOf(path));
    missing_ = parent;
    return false;
  }

  bool mayReplace(const std::string& path) {
    const std::string shown = joinPath(options_.destination, path);
    while (existing_ == Existing::kAsk) {
      streams_.error(fmt::format("replace {}? [y]es, [n]o, [A]ll, [N]one: ", shown));
      std::string answer;
      if (!std::getline(std::cin, answer)) {
        streams_.error(" NULL\n(EOF or read error, treating as \"[N]one\" ...)\n");
        plan_.endedByInput = true;
        existing_ = Existing::kKeep;
      } else if (answer == "y" || answer == "n") {
        return answer == "y";
      } else if (answer == "A") {
        existing_ = Existing::kReplace;
      } else if (answer == "N") {
        existing_ = Existing::kKeep;
      } else {
        streams_.error(fmt::format("error:  invalid response [{}]\n", answer));
      }
    }
    return existing_ == Existing::kReplace;
  }

  const UnzipOptions& options_;
  const Streams& streams_;
  Existing existing_;
  FolderCursor& destination_;
  ExtractionPlan& plan_;
  std::string missing_;  // the folder last found not to be there: neighbours need not look again
  std::unordered_map<std::string, Place> taken_;
};

}  // namespace

std::string folderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string nameOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool destinationPath(const std::string& name, std::string* path) {
  if (name.starts_with('/')) return false;
  path->clear();
  for (size_t at = 0; at < name.size();) {
    const size_t end = std::min(name.find('/', at), name.size());
    const std::string component = name.substr(at, end - at);
    at = end + 1;
    if (component == "..") return false;
    if (component.empty() || component == ".") continue;
    if (!path->empty()) path->push_back('/');
    path->append(component);
  }
  return true;
}

bool planExtraction(const std::vector<const Entry*>& entries, const UnzipOptions& options,
                    const Streams& streams, FolderCursor* destination, ExtractionPlan* plan,
                    ErrorText* error) {
  Planner planner(options, streams, destination, plan);
  for (const Entry* entry : entries) {
    if (!planner.add(*entry, error)) return false;
  }
  return planner.finish(error);
}

}  // namespace tovrek::unzip
