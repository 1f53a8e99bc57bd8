// A diagnostic view of the user's keychains.
#pragma once

#include "context/PellRequest.h"

namespace tovrek {

class PellKeychainHelper {
 public:
  // Writes the keychain list to the system log; does nothing unless a keychain was asked for.
  static void displayKeychain(const PellRequest& request);
};

}  // namespace tovrek
