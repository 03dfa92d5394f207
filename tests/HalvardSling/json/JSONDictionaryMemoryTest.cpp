// What a dictionary is after memory ran out while it was changed.

#include <functional>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <HalvardSling/json/JSONDictionary.hpp>

#include "support/Allocations.hpp"

namespace {

using HalvardSling::JSONDictionary;

JSONDictionary parsed(std::string_view text) {
    return std::get<JSONDictionary>(JSONDictionary::parse(text));
}

/// Changes with one allocation after the other failing, until all succeed.
/// @return how many failed
long failEachAllocation(const std::function<void()>& change, const std::function<void()>& check) {
    for (long at = 1;; ++at) {
        try {
            const TestSupport::FailingAllocations failing(TestSupport::Failing::one, at);
            change();
            return at - 1;
        } catch (const std::bad_alloc&) {
        }
        check();
    }
}

using Change = std::function<void(JSONDictionary&)>;

TEST(JSONDictionary, IsAsBeforeAndUsableIfMemoryRunsOutDuringAChange) {
    const std::string key(100, 'k');
    const std::string value(1000, 'v');
    const auto inner = parsed(R"({"n":5,"list":[{"t":"text"}]})");
    const std::vector<JSONDictionary> dictionaries(20, inner);
    const std::vector<std::string> texts(20, value);
    const std::vector<std::pair<std::string, Change>> changes{
        {"setText", [&](JSONDictionary& of) { of.setText(key, value); }},
        {"setText, existing", [&](JSONDictionary& of) { of.setText("a", value); }},
        {"setInteger", [&](JSONDictionary& of) { of.setInteger(key, 1); }},
        {"setInteger, existing", [&](JSONDictionary& of) { of.setInteger("a", 1); }},
        {"setBoolean", [&](JSONDictionary& of) { of.setBoolean(key, true); }},
        {"setDictionary", [&](JSONDictionary& of) { of.setDictionary(key, inner); }},
        {"setDictionary, itself", [&](JSONDictionary& of) { of.setDictionary(key, of); }},
        {"setDictionaries", [&](JSONDictionary& of) { of.setDictionaries(key, dictionaries); }},
        {"setTexts", [&](JSONDictionary& of) { of.setTexts(key, texts); }},
        {"remove", [&](JSONDictionary& of) { of.remove("a"); }},
        {"copy assignment", [&](JSONDictionary& of) {
             auto other = inner;
             other.setText(key, value);
             of = other;
         }}};
    JSONDictionary built;
    built.setText("a", "b");
    built.setDictionary("d", inner);
    const std::vector<JSONDictionary> starts{
        JSONDictionary(), built, parsed(built.toJSON()),
        *parsed(R"({"x":1,"in":)" + built.toJSON() + '}').dictionary("in")};
    for (const auto& [name, change] : changes)
        for (const auto& start : starts) {
            SCOPED_TRACE(name + " of " + start.toJSON());
            JSONDictionary dictionary = start;
            const std::string before = start.toJSON();
            const long failed = failEachAllocation([&] { change(dictionary); },
                                                   [&] {
                                                       EXPECT_EQ(dictionary.toJSON(), before);
                                                       JSONDictionary used = dictionary;
                                                       used.setInteger("used", 1);
                                                       used.remove("a");
                                                       EXPECT_EQ(used.integer("used"), 1);
                                                       EXPECT_EQ(used.text("a"), std::nullopt);
                                                       dictionary = start;
                                                   });
            EXPECT_TRUE(failed > 0 || start.empty());
            JSONDictionary expected = start;
            change(expected);
            EXPECT_EQ(dictionary.toJSON(), expected.toJSON());
        }
}

}  // namespace
