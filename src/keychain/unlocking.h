// The passwords of keychains that are unlocked, for programs that run later.
//
// They lie in a folder of this user alone that does not outlive the session: tovrek in
// $XDG_RUNTIME_DIR, else tovrek-UID in /dev/shm (both are kept in memory) or in /tmp. One file, of
// mode 0600, holds the password of one keychain; its time of change is the last use.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/ErrorText.h"

namespace tovrek::keychain {

// That folder, whether it is there or not.
std::string runtimeFolder();

bool rememberPassword(const std::string& keychain, std::string_view password, ErrorText* error);
// None when the keychain was not unlocked, was locked since, or was not used for as long as its
// settings allow. Counts as a use.
std::optional<std::string> rememberedPassword(const std::string& keychain);
void forgetPassword(const std::string& keychain);
void forgetAllPasswords();

// The password that the keychain's keys are encrypted with, as far as this program may know it:
// the remembered one, else $TOVREK_KEYCHAIN_PASSWORD where it fits. None: the keychain is locked.
std::optional<std::string> keyPassword(const std::string& keychain);

}  // namespace tovrek::keychain
