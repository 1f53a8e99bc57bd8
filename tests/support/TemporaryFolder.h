// A scratch folder for one test.
#pragma once

#include <string>

namespace tovrek::test {

// Made on construction below the system's temporary folder, removed with all it holds on
// destruction.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }
  // The path of `name` inside.
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  // Writes a file inside, making the folders in between; answers its path.
  std::string write(const std::string& name, const std::string& contents) const;

 private:
  std::string path_;
};

// The contents of a file; fails the running test when it cannot be read.
std::string contentsOf(const std::string& path);

// Permissions with the set-id bits of a file, or of a link itself; fails the running test when
// there is none.
unsigned modeOf(const std::string& path);

// Sets an environment variable for the life of the object.
class ScopedEnvironment {
 public:
  ScopedEnvironment(const std::string& name, const std::string& value);
  ~ScopedEnvironment();
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  std::string name_, old_;
  bool wasSet_;
};

}  // namespace tovrek::test
