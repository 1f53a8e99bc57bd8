// A tree as the judges of signatures read it.
#pragma once

#include <string>

#include "inspect/Tree.h"
#include "signing/FileSource.h"

namespace tovrek::inspect {

// Paths are taken from a folder of the tree, and no link leads out of that. Nothing is written
// anywhere: what is packed is unpacked into memory.
class TreeSource : public signing::FileSource {
 public:
  // The tree must outlive the source.
  TreeSource(const Tree& tree, std::string folder) : tree_(tree), folder_(std::move(folder)) {}

  std::optional<std::string> realPath(const std::string& path) const override;
  std::optional<ItemKind> kindAt(const std::string& path) const override;
  std::optional<ItemKind> kindBehind(const std::string& path) const override;
  std::optional<std::string> linkTarget(const std::string& path) const override;
  std::optional<signing::FileSource::Contents> map(const std::string& path,
                                                   ErrorText* error) const override;
  bool read(const std::string& path, std::string* contents, uint64_t limit,
            ErrorText* error) const override;
  std::unique_ptr<Folder> folder(const std::string& path) const override;
  bool walk(const std::string& root, const std::function<bool(const WalkedItem&)>& visit,
            ErrorText* error) const override;

 private:
  std::string inTree(const std::string& path) const;
  // The item itself, where the path leads through no link; null for folders and what is not there.
  const Tree::Item* find(const std::string& path) const;
  // The item that the path leads to in the end; null, with the reason, when there is none.
  const Tree::Item* findBehind(const std::string& path, ErrorText* error) const;

  const Tree& tree_;
  const std::string folder_;
};

}  // namespace tovrek::inspect
