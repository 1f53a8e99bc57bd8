// A diagnostic view of the user's keychains.
#pragma once

namespace tovrek {

class PellKeychainHelper {
 public:
  // Writes the keychain list to the system log; does nothing unless a keychain was asked for.
  static void displayKeychain();
};

}  // namespace tovrek
