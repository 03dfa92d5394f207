#include <list>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <HalvardMorrow/OptionalSequences.hpp>

namespace {

using Numbers = std::optional<std::vector<int>>;

TEST(OptionalSequences, TwoAbsentOnesAreEqual) {
    EXPECT_TRUE(HalvardMorrow::equal(Numbers{}, Numbers{}));
}

TEST(OptionalSequences, AbsentAndEmptyDiffer) {
    EXPECT_FALSE(HalvardMorrow::equal(Numbers{}, Numbers{std::vector<int>{}}));
    EXPECT_FALSE(HalvardMorrow::equal(Numbers{std::vector<int>{}}, Numbers{}));
}

TEST(OptionalSequences, TwoEmptyOnesAreEqual) {
    EXPECT_TRUE(HalvardMorrow::equal(Numbers{std::vector<int>{}}, Numbers{std::vector<int>{}}));
}

TEST(OptionalSequences, ValuesAreComparedInOrder) {
    EXPECT_TRUE(HalvardMorrow::equal(Numbers{{1, 2}}, Numbers{{1, 2}}));
    EXPECT_FALSE(HalvardMorrow::equal(Numbers{{1, 2}}, Numbers{{2, 1}}));
}

TEST(OptionalSequences, OneThatGoesOnIsUnequal) {
    EXPECT_FALSE(HalvardMorrow::equal(Numbers{{1, 2}}, Numbers{{1, 2, 3}}));
    EXPECT_FALSE(HalvardMorrow::equal(Numbers{{1, 2, 3}}, Numbers{{1, 2}}));
}

TEST(OptionalSequences, AnySequenceOfAnyEquatableValueWillDo) {
    using Texts = std::optional<std::list<std::string>>;
    EXPECT_TRUE(HalvardMorrow::equal(Texts{{"a", "b"}}, Texts{{"a", "b"}}));
    EXPECT_FALSE(HalvardMorrow::equal(Texts{{"a"}}, Texts{{"b"}}));
}

}  // namespace
