#pragma once

#include <cstddef>
#include <vector>

#include <gmock/gmock.h>

namespace TestSupport {

/// Expects that `==` is an equivalence on these records, that `!=` is its opposite, and that it has
/// just so many classes.
template <class Record>
void expectEquivalence(const std::vector<Record>& all, std::size_t classes) {
    std::vector<const Record*> representatives;
    for (const Record& a : all) {
        ASSERT_TRUE(a == a);
        bool isNew = true;
        for (const Record* representative : representatives)
            isNew = isNew && !(a == *representative);
        if (isNew) representatives.push_back(&a);

        for (const Record& b : all) {
            ASSERT_EQ(a == b, b == a);
            ASSERT_NE(a == b, a != b);
            if (!(a == b)) continue;
            for (const Record& c : all)
                ASSERT_EQ(a == c, b == c);
        }
    }
    EXPECT_EQ(representatives.size(), classes);
}

}  // namespace TestSupport
