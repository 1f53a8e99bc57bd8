// Owners of what posix_spawn takes, and the pieces that all who start programs need.
#pragma once

#include <signal.h>
#include <spawn.h>

#include <array>
#include <string>
#include <vector>

namespace tovrek {

// What the library makes and takes back.
template <class T, int (*Make)(T*), int (*TakeBack)(T*)>
struct SpawnSetting {
  SpawnSetting() { Make(&value); }
  ~SpawnSetting() { TakeBack(&value); }
  SpawnSetting(const SpawnSetting&) = delete;
  SpawnSetting& operator=(const SpawnSetting&) = delete;
  T value;
};
using FileActions = SpawnSetting<posix_spawn_file_actions_t, posix_spawn_file_actions_init,
                                 posix_spawn_file_actions_destroy>;
using SpawnAttributes =
    SpawnSetting<posix_spawnattr_t, posix_spawnattr_init, posix_spawnattr_destroy>;

// The texts as an array that ends in a null pointer; valid as long as they are.
inline std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Signals that a child meets as every program does, whatever this one has made of them.
inline constexpr std::array kEndingSignals = {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ};

inline sigset_t endingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : kEndingSignals) sigaddset(&signals, number);
  return signals;
}

}  // namespace tovrek
