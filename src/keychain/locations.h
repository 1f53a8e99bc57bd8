// Where keychains are, which one is the default, and which are searched.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/ErrorText.h"
#include "keychain/Keychain.h"

namespace tovrek::keychain {

// $XDG_DATA_HOME/tovrek when that is an absolute path, else ~/.local/share/tovrek.
std::string dataFolder();

// The path that a keychain's name or path stands for, whether anything is there or not.
//
// A name without "/" is a keychain in dataFolder(): "build", "build.keychain" and
// "build.keychain-db" are all build.keychain there; "login" and "keychain" are the default
// folder "keychain". When no keychain has that name but one stands in the working directory
// (certs.p12, build.keychain), that is meant. A path below a missing ".../Library/Keychains"
// folder is taken by its name alone, so that scripts written for a Mac find theirs. Other paths
// stand for themselves, else for what is there with ".keychain" or ".keychain-db" in place of the
// suffix.
std::string resolveKeychain(std::string_view nameOrPath);

// The default keychain: what setDefaultKeychain() stored, else dataFolder()/keychain.
std::string defaultKeychain();
bool setDefaultKeychain(const std::string& path, ErrorText* error);
bool resetDefaultKeychain(ErrorText* error);

// The search list: what setSearchList() stored, else the default keychain alone.
std::vector<std::string> searchList();
bool setSearchList(const std::vector<std::string>& paths, ErrorText* error);

// Opens one keychain by name or path; the reason for none reads on after the name.
std::optional<Keychain> openKeychain(std::string_view nameOrPath, ErrorText* error = nullptr);
// Opens the keychains of the search list that exist. None of them is needed. Those that could not
// be opened go to `unopened`; without it, one that cannot be read is there with its reason among
// Keychain::unreadable().
struct Unopened {
  std::string path, reason;
  bool isMissing = false;  // there is nothing of that name
};
std::vector<Keychain> openSearchList(std::vector<Unopened>* unopened = nullptr);

// Makes the folder with mode 0700. The password is remembered as a salted digest, so that unlocking
// with another one fails; with none given any password will do. Keys are protected by the modes of
// files and folder, and by the password as well where `encrypted` is set: the new keychain is then
// unlocked.
enum class CreateResult { kCreated, kExists, kFailed };
CreateResult createKeychain(const std::string& path, const std::optional<std::string>& password,
                            ErrorText* error, bool encrypted = false);

// Whether $TOVREK_ENCRYPT_KEYCHAINS asks for keychains with encrypted keys ("1").
bool encryptsNewKeychains();

// Makes the password another one: of the keys, where they are encrypted, and of the record.
bool changePassword(const std::string& path, const std::string& before, const std::string& after,
                    ErrorText* error);

// Removes the keychain, and its path from the search list and the default.
bool deleteKeychain(const std::string& path, ErrorText* error);

// Whether `password` is the one given on creation; any fits a keychain made without. For a single
// file, whether its content can be read with it.
bool checkPassword(const std::string& path, std::string_view password);

}  // namespace tovrek::keychain
