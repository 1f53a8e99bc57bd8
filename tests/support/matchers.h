// The matchers that tests use by their bare names.
#pragma once

#include <gmock/gmock.h>

namespace tovrek {

using ::testing::AllOf, ::testing::ContainsRegex, ::testing::Each, ::testing::ElementsAre,
    ::testing::ElementsAreArray, ::testing::EndsWith, ::testing::HasSubstr, ::testing::IsEmpty,
    ::testing::MatchesRegex, ::testing::Not, ::testing::Optional, ::testing::StartsWith;

}  // namespace tovrek
