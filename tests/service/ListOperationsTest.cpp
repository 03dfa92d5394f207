#include <string>
#include <vector>

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinProfile/model/ProfileError.hpp>

#include "ServiceFixture.hpp"

namespace {

using HalvardSling::Observable;
using HalvardSling::Response;
using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;
using KestrinProfile::Profile;
using KestrinProfile::ProfileOperation;
using KestrinProfile::ProfileParams;
using KestrinProfile::SearchParams;
using KestrinProfile::Types;
using KestrinProfile::UserProfile;
using KestrinProfile::UserProfileElement;
using testing::HasSubstr;
using testing::SizeIs;
using TestSupport::Observed;
using TestSupport::ServiceFixture;

template <class Result>
struct Operation {
    Observable<Result> (Profile::*method)(ProfileParams) const;
    ProfileOperation operation;
};

const std::vector<Operation<UserProfile>> reads{
    {&Profile::requestHistory, ProfileOperation::getHistory},
    {&Profile::requestVideoHistory, ProfileOperation::getVideoProgress},
    {&Profile::requestFavorites, ProfileOperation::getFavorites},
    {&Profile::requestWatchList, ProfileOperation::getWatchList},
};

/// An operation that adds one item, and the kind that it says the item has.
struct Addition {
    Operation<Response> operation;
    std::string kind;
};

const std::vector<Addition> additions{
    {{&Profile::addHistoryVideo, ProfileOperation::addVideoToHistory}, "VIDEO"},
    {{&Profile::addFavoriteShow, ProfileOperation::addFavoriteShow}, "SHOW"},
    {{&Profile::addWatchListVideo, ProfileOperation::addVideoToWatchList}, "VIDEO"},
};

const std::vector<Operation<Response>> writes{
    {&Profile::deleteVideoHistory, ProfileOperation::removeVideoFromHistory},
    {&Profile::clearHistory, ProfileOperation::clearHistory},
    {&Profile::addFavoriteShows, ProfileOperation::addFavoriteShows},
    {&Profile::deleteFavoriteShow, ProfileOperation::removeFavoriteShow},
    {&Profile::clearFavorites, ProfileOperation::clearFavorites},
    {&Profile::deleteWatchListVideo, ProfileOperation::removeFromWatchList},
    {&Profile::clearWatchList, ProfileOperation::clearWatchList},
    {&Profile::validateProfileName, ProfileOperation::validate},
};

class ListOperations : public ServiceFixture {
  protected:
    ListOperations() {
        hold("parent", "parent token");
        hold("p2", "token");
        manager.selectProfile("p2");
    }

    /// A record with everything that any operation needs.
    static ProfileParams wholeParams() {
        ProfileParams params;
        params.videoID = "v1";
        params.showID = "s1";
        params.progress = 42;
        params.isComplete = true;
        params.userName = "Ann";
        params.elements = {UserProfileElement("s1", Types::show)};
        return params;
    }

    [[nodiscard]] HalvardSling::TransportRequest sent() const {
        return transport->requests().back();
    }

    [[nodiscard]] std::string sentBody() const {
        return sent().body != nullptr ? *sent().body : "none";
    }

    void expectSentTo(ProfileOperation operation) const {
        EXPECT_EQ(sent().url,
                  "https://api.example.com/" + std::string(rawValue(operation)) + "?profile=p2");
        EXPECT_EQ(sent().headers.value("Authorization"), "JWT token");
        EXPECT_EQ(sent().headers.value("PXRO-PROFILE-ID"), "p2");
    }
};

TEST_F(ListOperations, EveryReadGoesToItsServiceAndEmitsTheDecodedList) {
    for (const auto& read : reads) {
        transport->willAnswer(200, R"({"id":"h","maxSize":3,"elements":[{"id":"v1"}]})");
        const Observed<UserProfile> observed((profile.*read.method)(wholeParams()));
        ASSERT_THAT(observed.values(), SizeIs(1));
        EXPECT_EQ(observed.values()[0].id, "h");
        EXPECT_EQ(observed.values()[0].maxSize, 3);
        EXPECT_THAT(*observed.values()[0].elements, SizeIs(1));
        expectSentTo(read.operation);
        EXPECT_EQ(sentBody(), "none");
    }
}

TEST_F(ListOperations, EveryDictionaryIsAList) {
    for (const auto& read : reads) {
        transport->willAnswer(200, "{}");
        const Observed<UserProfile> observed((profile.*read.method)(wholeParams()));
        ASSERT_THAT(observed.values(), SizeIs(1));
        EXPECT_EQ(observed.values()[0].elements, std::nullopt);
    }
}

TEST_F(ListOperations, AReplyThatIsNoDictionaryFails) {
    for (const auto& read : reads) {
        transport->willAnswer(200, "[]");
        EXPECT_EQ(Observed<UserProfile>((profile.*read.method)(wholeParams()))
                      .error<SlingError>()
                      ->kind(),
                  SlingErrorKind::malformedReply);
    }
}

TEST_F(ListOperations, EveryAdditionSendsItsOwnKindWhateverTheRecordHolds) {
    for (const auto& [addition, kind] : additions) {
        transport->willAnswer(204);
        const auto params = wholeParams();
        ASSERT_TRUE(Observed<Response>((profile.*addition.method)(params)).completed());
        expectSentTo(addition.operation);
        EXPECT_THAT(sentBody(), HasSubstr("\"type\":\"" + kind + "\""));
        EXPECT_EQ(params.type(), std::nullopt);
        EXPECT_EQ(params.operation(), std::nullopt);
    }
}

TEST_F(ListOperations, AddingAVideoToTheHistorySendsItsProgressAsText) {
    transport->willAnswer(204);
    ASSERT_TRUE(Observed<Response>(profile.addHistoryVideo(wholeParams())).completed());
    EXPECT_EQ(sentBody(), R"({"isCompleted":"true","type":"VIDEO","progress":"42"})");
}

TEST_F(ListOperations, EveryPlainWriteGoesToItsServiceAndEmitsTheResponse) {
    for (const auto& write : writes) {
        transport->willAnswer(299, "raw");
        const Observed<Response> observed((profile.*write.method)(wholeParams()));
        ASSERT_THAT(observed.values(), SizeIs(1));
        EXPECT_EQ(observed.values()[0].status(), 299);
        EXPECT_EQ(observed.values()[0].body(), "raw");
        expectSentTo(write.operation);
    }
}

TEST_F(ListOperations, AddingSeveralShowsSendsNoKindOfItsOwn) {
    transport->willAnswer(204);
    ASSERT_TRUE(Observed<Response>(profile.addFavoriteShows(wholeParams())).completed());
    EXPECT_EQ(sentBody(), R"({"elements":[{"id":"s1","type":"SHOW"}]})");
}

TEST_F(ListOperations, AddingASearchSendsItsTextInTheURLAndTheFixedBody) {
    transport->willAnswer(204);
    SearchParams params("x y/z", Types::video);
    ASSERT_TRUE(Observed<Response>(profile.addSearchHistory(params)).completed());
    expectSentTo(ProfileOperation::addSearchHistory);
    EXPECT_EQ(sentBody(), R"({"type":"TERM"})");
    EXPECT_EQ(params.operation(), std::nullopt);
}

/// The service of the search operations with all of their placeholders in its URL.
class DeletingSearches : public ListOperations {
  protected:
    DeletingSearches() {
        auto search = service(ProfileOperation::deleteSearchHistory);
        search.url = KestrinConfigManager::URLTemplate(
            "https://api.example.com/s?term=%SEARCH%&brand=%BRANDNAME%&profile=%UXID%");
        KestrinConfigManager::ServiceTable table;
        table.add(std::move(search));
        configureWith(std::move(table));
    }
};

TEST_F(DeletingSearches, IsAddressedByTheGivenBrandAndTheSelectedProfile) {
    transport->willAnswer(204);
    ASSERT_TRUE(Observed<Response>(profile.deleteSearchHistory("other")).completed());
    EXPECT_EQ(sent().url, "https://api.example.com/s?term=&brand=other&profile=p2");
    EXPECT_EQ(sent().headers.value("Authorization"), "JWT token");
    EXPECT_EQ(sentBody(), R"({"type":"TERM"})");
}

TEST_F(DeletingSearches, AnEmptyBrandIsPresentAndIsSent) {
    transport->willAnswer(204);
    ASSERT_TRUE(Observed<Response>(profile.deleteSearchHistory("")).completed());
    EXPECT_EQ(sent().url, "https://api.example.com/s?term=&brand=&profile=p2");
}

TEST_F(DeletingSearches, WithoutABindTheGuardRefuses) {
    manager.dropBinds();
    EXPECT_TRUE(Observed<Response>(profile.deleteSearchHistory("b"))
                    .error<KestrinConfigManager::ConfigurationManagerError>());
    EXPECT_TRUE(transport->requests().empty());
}

TEST_F(ListOperations, A403CausesOneReactionForEveryOperation) {
    int expected = 0;
    const auto refuse = [&](const auto& operations) {
        for (const auto& each : operations) {
            transport->willAnswer(403);
            EXPECT_TRUE(
                Observed((profile.*each.method)(wholeParams())).template error<SlingError>());
            EXPECT_EQ(reactions, ++expected);
        }
    };
    refuse(reads);
    refuse(writes);
}

}  // namespace
