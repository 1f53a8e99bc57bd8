#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace tovrek::test {

namespace fs = std::filesystem;

TemporaryFolder::TemporaryFolder() {
  std::string pattern = (fs::temp_directory_path() / "tovrek-test-XXXXXX").string();
  const char* made = ::mkdtemp(pattern.data());
  if (made == nullptr) std::abort();
  path_ = made;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  for (auto item = fs::recursive_directory_iterator(path_, ignored);
       item != fs::recursive_directory_iterator(); item.increment(ignored)) {
    if (item->is_directory(ignored) && !item->is_symlink(ignored)) {
      fs::permissions(item->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
    }
  }
  fs::remove_all(path_, ignored);
}

std::string TemporaryFolder::write(const std::string& name, const std::string& contents) const {
  const fs::path target = file(name);
  fs::create_directories(target.parent_path());
  std::ofstream(target, std::ios::binary) << contents;
  return target.string();
}

std::string contentsOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in.good()) << "cannot read " << path;
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

unsigned modeOf(const std::string& path) {
  struct stat info {};
  EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
  return info.st_mode & 07777;
}

ScopedEnvironment::ScopedEnvironment(const std::string& name, const std::string& value)
    : name_(name), wasSet_(false) {
  if (const char* old = std::getenv(name.c_str())) {
    old_ = old;
    wasSet_ = true;
  }
  ::setenv(name.c_str(), value.c_str(), 1);
}

ScopedEnvironment::~ScopedEnvironment() {
  if (wasSet_) {
    ::setenv(name_.c_str(), old_.c_str(), 1);
  } else {
    ::unsetenv(name_.c_str());
  }
}

}  // namespace tovrek::test
