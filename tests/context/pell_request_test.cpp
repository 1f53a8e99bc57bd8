#include <gtest/gtest.h>

#include "context/PellRequest.h"

namespace tovrek {
namespace {

TEST(PellRequest, NamesAKeychainOnlyWithTheFlag) {
  const std::optional<std::string> given = "/k/build.keychain";
  for (const bool flag : {false, true}) {
    for (const auto& path : {std::optional<std::string>(), given}) {
      PellRequest request;
      request.setKeychainPath(path);
      request.setPellRequestFlag(flag);
      EXPECT_EQ(request.namedKeychain(), flag ? path : std::nullopt);
      EXPECT_EQ(request.keychainPath(), path);
    }
  }
}

}  // namespace
}  // namespace tovrek
