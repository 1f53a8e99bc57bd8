#include "programs/unzip/ExtractionPlan.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <iostream>
#include <unordered_map>
#include <unordered_set>

#include "host/paths.h"
#include "log/SystemLog.h"

namespace tovrek::unzip {
namespace {

using archive::Entry;
using Existing = UnzipOptions::Existing;

class Planner {
 public:
  Planner(const UnzipOptions& options, FolderCursor* destination, ExtractionPlan* plan)
      : options_(options), existing_(options.existing), destination_(destination), plan_(plan) {}

  bool add(const Entry& entry, ErrorText* error) {
    PlannedItem item{&entry};
    if (!destinationPath(entry.name, &item.path)) {
      return fail(error, fmt::format("{} would leave the destination", entry.name));
    }
    if (entry.isFolder()) {
      if (!options_.junkPaths && !item.path.empty()) plan_->folders.push_back(std::move(item));
      return true;
    }
    if (options_.junkPaths) item.path = nameOf(item.path);
    if (item.path.empty()) return fail(error, fmt::format("{} is no name for a file", entry.name));
    const auto earlier = taken_.find(item.path);
    if (earlier != taken_.end() || stands(item.path)) {
      if (plan_->endedByInput || !mayReplace(item.path)) return true;
      item.replace = true;
      if (earlier != taken_.end()) forget(earlier->second);
    }
    std::vector<PlannedItem>& list = entry.isLink() ? plan_->links : plan_->files;
    taken_[item.path] = {&list, list.size()};
    list.push_back(std::move(item));
    return true;
  }

  // Drops what later entries of the same name replace, and checks that no entry lies below a link.
  bool finish(ErrorText* error) {
    // Outer folders first, whatever their order in the archive.
    std::stable_sort(plan_->folders.begin(), plan_->folders.end(),
                     [](const PlannedItem& a, const PlannedItem& b) { return a.path < b.path; });
    std::unordered_set<std::string> links;
    for (const PlannedItem& link : plan_->links) {
      if (link.entry != nullptr) links.insert(link.path);
    }
    for (std::vector<PlannedItem>* list : {&plan_->folders, &plan_->files, &plan_->links}) {
      std::erase_if(*list, [](const PlannedItem& item) { return item.entry == nullptr; });
      if (links.empty()) continue;
      for (const PlannedItem& item : *list) {
        const bool isFolder = item.entry->isFolder();
        for (std::string path = isFolder ? item.path : folderOf(item.path); !path.empty();
             path = folderOf(path)) {
          if (!links.contains(path)) continue;
          return fail(error, fmt::format("{} would be written through the symbolic link {}",
                                         item.entry->name, path));
        }
      }
    }
    return true;
  }

 private:
  struct Place {
    std::vector<PlannedItem>* list;
    size_t index;
  };

  static void forget(const Place& place) { (*place.list)[place.index].entry = nullptr; }

  bool stands(const std::string& path) {
    const std::string parent = folderOf(path);
    if (!missing_.empty() && parent == missing_) return false;
    const int folder = destination_->enter(parent, false);
    if (folder == -1) missing_ = parent;
    struct stat info {};
    return folder != -1 && ::fstatat(folder, nameOf(path).c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0;
  }

  bool mayReplace(const std::string& path) {
    const std::string shown = joinPath(options_.destination, path);
    while (existing_ == Existing::kAsk) {
      printError(fmt::format("replace {}? [y]es, [n]o, [A]ll, [N]one: ", shown));
      std::string answer;
      if (!std::getline(std::cin, answer)) {
        printError(" NULL\n(EOF or read error, treating as \"[N]one\" ...)\n");
        plan_->endedByInput = true;
        existing_ = Existing::kKeep;
      } else if (answer == "y" || answer == "n") {
        return answer == "y";
      } else if (answer == "A") {
        existing_ = Existing::kReplace;
      } else if (answer == "N") {
        existing_ = Existing::kKeep;
      } else {
        printError(fmt::format("error:  invalid response [{}]\n", answer));
      }
    }
    return existing_ == Existing::kReplace;
  }

  const UnzipOptions& options_;
  Existing existing_;
  FolderCursor* destination_;
  ExtractionPlan* plan_;
  std::string missing_;  // the folder last found not to be there: neighbours need not look again
  std::unordered_map<std::string, Place> taken_;
};

}  // namespace

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
                    FolderCursor* destination, ExtractionPlan* plan, ErrorText* error) {
  Planner planner(options, destination, plan);
  for (const Entry* entry : entries) {
    if (!planner.add(*entry, error)) return false;
  }
  return planner.finish(error);
}

}  // namespace tovrek::unzip
