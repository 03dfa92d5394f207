#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinProfile/model/User.hpp>
#include <KestrinProfile/model/UserProfile.hpp>
#include <KestrinProfile/model/UserProfileElement.hpp>

#include "model/Equivalence.hpp"

namespace KestrinProfile {
namespace {

using Texts = std::vector<std::optional<std::string>>;
using TestSupport::expectEquivalence;

const Texts texts{std::nullopt, "", "a"};

std::vector<std::optional<Date>> someDates() {
    std::vector<std::optional<Date>> dates{std::nullopt};
    for (const int microsecond : {-1001, -1000, -1, 0, 1, 999, 1000})
        dates.emplace_back(std::chrono::microseconds(microsecond));
    return dates;
}

std::vector<UserProfileElement> someEntries() {
    std::vector<UserProfileElement> entries;
    for (const auto& id : texts)
        for (const auto progress : {std::optional<std::int64_t>(), std::optional<std::int64_t>(0)})
            for (const auto completed : {std::optional<bool>(), std::optional<bool>(false)})
                for (const auto& date : someDates())
                    entries.emplace_back(id, Types::video, progress, completed, date);
    return entries;
}

TEST(RecordEqualityTest, IsAnEquivalenceOfEntries) {
    // The eight dates are five different ones: absent, and four milliseconds.
    expectEquivalence(someEntries(), 3 * 2 * 2 * 5);
}

TEST(RecordEqualityTest, IsAnEquivalenceOfUsers) {
    std::vector<User> users;
    for (const auto& profileID : texts)
        for (const auto& username : texts)
            for (const auto& avatar : texts)
                for (const bool isDefault : {false, true}) {
                    users.emplace_back("", username, avatar, std::nullopt, isDefault);
                    users.back().profileID = profileID;
                }
    expectEquivalence(users, users.size());
}

TEST(RecordEqualityTest, IsAnEquivalenceOfLists) {
    const UserProfileElement early("1", Types::video, 1, true, Date());
    const UserProfileElement sameMillisecond("1", Types::video, 1, true,
                                             Date(std::chrono::microseconds(1)));
    const UserProfileElement other("2");
    using Elements = std::vector<UserProfileElement>;
    const std::vector<std::optional<Elements>> contents{
        std::nullopt,           Elements{},
        Elements{early},        Elements{sameMillisecond},
        Elements{other},        Elements{early, other},
        Elements{other, early}, Elements{other, sameMillisecond},
    };
    std::vector<UserProfile> lists;
    for (const auto& id : texts)
        for (const auto maxSize : {std::optional<std::int64_t>(), std::optional<std::int64_t>(0)})
            for (const auto& elements : contents) {
                UserProfile list = *UserProfile::fromJSON({});
                list.id = id;
                list.maxSize = maxSize;
                list.elements = elements;
                lists.push_back(list);
            }
    expectEquivalence(lists, 3 * 2 * 6);
}

}  // namespace
}  // namespace KestrinProfile
