// How much memory an operation takes for its reply, however the reply is made.

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinProfile/model/User.hpp>
#include <KestrinProfile/model/UserProfileElement.hpp>

#include "ServiceFixture.hpp"
#include "support/Allocations.hpp"

namespace {

using HalvardSling::RequestPolicy;
using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;
using KestrinProfile::ProfileOperation;
using KestrinProfile::User;
using KestrinProfile::UserProfile;
using KestrinProfile::UserProfileElement;
using testing::HasSubstr;
using testing::StartsWith;

// What the limit counts for the record of a dictionary.
static_assert(sizeof(User) <= 176);
static_assert(sizeof(UserProfileElement) <= 176);

/// A text of so many bytes at the most: a head, one item as often as it fits, a tail.
std::string filled(std::size_t size, const std::string& head, std::string_view item,
                   std::string_view tail) {
    std::string text;
    text.reserve(size);
    text = head;
    while (text.size() + item.size() + 1 + tail.size() <= size)
        (text += item) += ',';
    text.pop_back();
    return text += tail;
}

std::string entries(std::size_t size, std::string_view key, std::string_view entry) {
    return filled(size, R"({")" + std::string(key) + R"(":[)", entry, "]}");
}

/// A dictionary of many keys, all different, that begin the same.
std::string keys(std::size_t size, std::string_view prefix) {
    std::string text;
    text.reserve(size + prefix.size() + 32);
    text = "{";
    for (std::size_t i = 0; text.size() + prefix.size() + 32 < size; ++i)
        ((text += '"') += prefix) += std::to_string(i) + R"(":0,)";
    text.back() = '}';
    return text;
}

std::string nested(std::size_t size, std::string_view opening, std::string_view closing) {
    std::string head;
    std::string tail = "]";
    for (int depth = 0; depth < 60; ++depth) {
        head += opening;
        tail += closing;
    }
    return filled(size, head + '[', "1", tail);
}

struct Family {
    std::string_view name;
    std::string (*reply)(std::size_t size);
};

const std::vector<Family> families{
    {"empty entries", [](std::size_t size) { return entries(size, "elements", "{}"); }},
    {"empty users", [](std::size_t size) { return entries(size, "data", "{}"); }},
    {"entries of one number",
     [](std::size_t size) { return entries(size, "elements", R"({"":0})"); }},
    {"entries of one text",
     [](std::size_t size) { return entries(size, "elements", R"({"id":"0123456789abcdef"})"); }},
    {"users of four texts",
     [](std::size_t size) {
         return entries(size, "data",
                        R"({"profileId":"0123456789abcdef","username":"0123456789abcdef",)"
                        R"("avatar":"0123456789abcdef","group":"0123456789abcdef"})");
     }},
    {"texts with escapes",
     [](std::size_t size) {
         return entries(size, "elements", R"({"id":"\n)" + std::string(80, 'a') + R"("})");
     }},
    {"numbers", [](std::size_t size) { return entries(size, "elements", "1"); }},
    {"numbers of too many digits",
     [](std::size_t size) { return entries(size, "elements", "1e99999999999"); }},
    {"texts", [](std::size_t size) { return entries(size, "elements", R"("")"); }},
    {"arrays", [](std::size_t size) { return entries(size, "elements", "[]"); }},
    {"arrays in arrays",
     [](std::size_t size) {
         return entries(size, "elements", std::string(60, '[') + std::string(60, ']'));
     }},
    {"one text",
     [](std::size_t size) { return R"({"id":")" + std::string(size - 9, 'a') + R"("})"; }},
    {"one text with an escape",
     [](std::size_t size) { return R"({"id":"\n)" + std::string(size - 11, 'a') + R"("})"; }},
    {"one text of escapes",
     [](std::size_t size) { return filled(size, R"({"id":")", R"(\n\n\n\n\n\n)", R"("})"); }},
    {"many keys", [](std::size_t size) { return keys(size, ""); }},
    {"keys that begin the same",
     [](std::size_t size) { return keys(size, std::string(1000, 'k')); }},
    {"one key repeated", [](std::size_t size) { return filled(size, "{", R"("a":0)", "}"); }},
    {"entries that repeat a key",
     [](std::size_t size) { return entries(size, "elements", R"({"a":1,"a":1})"); }},
    {"repeated keys in each other",
     [](std::size_t size) { return nested(size, R"({"a":1,"a":1,"b":)", "}"); }},
    {"deep dictionaries", [](std::size_t size) { return nested(size, R"({"a":)", "}"); }},
};

/// What became of an operation.
struct Outcome {
    std::optional<std::size_t> records;  ///< absent: it failed
    std::optional<SlingError> error;
    std::size_t memory = 0;  ///< at the most, the reply's text included
};

class ReplyMemory : public TestSupport::ServiceFixture {
  protected:
    /// Asks for the history or the profiles.
    Outcome outcomeOf(std::string reply, const RequestPolicy& policy = {}) {
        reply.shrink_to_fit();
        const bool isOfUsers = reply.starts_with(R"({"data")");
        auto asked =
            service(isOfUsers ? ProfileOperation::getProfiles : ProfileOperation::getHistory);
        asked.policy = policy;
        KestrinConfigManager::ServiceTable table;
        table.add(std::move(asked));
        configureWith(std::move(table));
        hold("parent", "token");

        const std::size_t base = TestSupport::bytesOfThisThread() - reply.size();
        transport->willAnswer(200, std::move(reply));
        TestSupport::startPeakOfThisThread();
        Outcome outcome;
        const auto failed = [&](const std::exception_ptr& error) {
            try {
                std::rethrow_exception(error);
            } catch (const SlingError& known) {
                outcome.error = known;
            }
        };
        if (isOfUsers)
            profile.getProfiles().subscribe(
                [&](const std::vector<User>& users) { outcome.records = users.size(); }, failed);
        else
            profile.requestHistory(KestrinProfile::ProfileParams())
                .subscribe(
                    [&](const UserProfile& list) {
                        outcome.records = list.elements ? list.elements->size() : 0;
                    },
                    failed);
        outcome.memory = TestSupport::peakOfThisThread() - base;
        return outcome;
    }
};

TEST_F(ReplyMemory, IsAtMostFourTimesTheCapWhateverTheReply) {
    constexpr std::size_t cap = std::size_t{1} << 20U;
    // A request, its answer, and the hundred small things that come with them.
    constexpr std::size_t base = 32'768;
    for (const auto& [name, reply] : families)
        for (const double part : {1.0, 0.9, 0.8, 0.7, 0.6, 0.5, 0.4, 0.3, 0.2, 0.15, 0.1, 0.05}) {
            const auto size = static_cast<std::size_t>(part * cap);
            const auto outcome = outcomeOf(reply(size), {.maxBodyBytes = cap});
            EXPECT_LE(outcome.memory, base + 4 * cap) << name << ", " << size << " bytes";
            EXPECT_TRUE(outcome.records || outcome.error) << name << ", " << size << " bytes";
            if (outcome.error) {
                EXPECT_EQ(outcome.error->kind(), SlingErrorKind::tooLarge) << name;
            }
        }
}

TEST_F(ReplyMemory, OfAReplyOf16MiBIsAtMost64MiB) {
    const auto outcome = outcomeOf(entries(std::size_t{16} << 20U, "data", "{}"));
    EXPECT_LE(outcome.memory, (std::size_t{64} << 20U) + 32'768);
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(outcome.error->kind(), SlingErrorKind::tooLarge);
    EXPECT_THAT(outcome.error->what(), StartsWith("personalization-get-profiles (POST"));
    EXPECT_THAT(outcome.error->what(), HasSubstr("too many values for the memory"));
}

TEST_F(ReplyMemory, AllowsAListOf100000EntriesWithinTheCap) {
    std::string reply = R"({"id":"household-1","maxSize":100000,"elements":[)";
    constexpr std::size_t count = 100'000;
    reply.reserve(reply.size() + count * 140);
    for (std::size_t i = 0; i < count; ++i)
        reply += R"({"id":"5f0c1a77-video-)" + std::to_string(1'000'000'000 + i) +
                 R"(","type":"video","progress":1234567,"isCompleted":false,)"
                 R"("autoAddTimestamp":"2017-03-09T18:25:43.511Z"},)";
    reply.back() = ']';
    reply += '}';
    ASSERT_GT(reply.size(), 130 * count);
    const auto outcome = outcomeOf(std::move(reply));
    EXPECT_EQ(outcome.records, count);
    EXPECT_LE(outcome.memory, std::size_t{64} << 20U);
}

TEST_F(ReplyMemory, AnEmptyEntryIsAnEntry) {
    EXPECT_EQ(outcomeOf(R"({"elements":[{},{},{}]})").records, 3U);
    EXPECT_EQ(
        outcomeOf(entries(15 + 3 * 6000, "elements", "{}"), {.maxBodyBytes = 1U << 20U}).records,
        6000U);
}

TEST_F(ReplyMemory, GrowsWithTheCapOfTheRequest) {
    const std::string reply = entries(15 + 3 * 30'000, "elements", "{}");
    const auto refused = outcomeOf(reply, {.maxBodyBytes = 200'000});
    ASSERT_TRUE(refused.error);
    EXPECT_EQ(refused.error->kind(), SlingErrorKind::tooLarge);
    EXPECT_EQ(outcomeOf(reply, {.maxBodyBytes = 2'000'000}).records, 30'000U);
}

}  // namespace
