// Owners of what posix_spawn takes, and the pieces that all who start programs need.
#pragma once

#include <signal.h>
#include <spawn.h>

#include <string>
#include <vector>

namespace tovrek {

struct FileActions {
  FileActions() { posix_spawn_file_actions_init(&actions); }
  ~FileActions() { posix_spawn_file_actions_destroy(&actions); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  posix_spawn_file_actions_t actions;
};

struct SpawnAttributes {
  SpawnAttributes() { posix_spawnattr_init(&attributes); }
  ~SpawnAttributes() { posix_spawnattr_destroy(&attributes); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;
  posix_spawnattr_t attributes;
};

// The texts as an array that ends in a null pointer; valid as long as they are.
inline std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Signals that a child meets as every program does, whatever this one has made of them.
inline sigset_t endingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ}) {
    sigaddset(&signals, number);
  }
  return signals;
}

}  // namespace tovrek
