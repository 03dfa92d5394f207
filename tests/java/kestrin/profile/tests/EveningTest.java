package kestrin.profile.tests;

import static kestrin.profile.tests.Tests.equal;
import static kestrin.profile.tests.Tests.failure;
import static kestrin.profile.tests.Tests.that;

import java.time.Duration;
import java.util.List;
import java.util.concurrent.CompletableFuture;
import kestrin.profile.AnonymousBind;
import kestrin.profile.ConfigurationManager;
import kestrin.profile.Household;
import kestrin.profile.Profile;
import kestrin.profile.ProfileSession;
import kestrin.profile.Response;
import kestrin.profile.SlingException;
import kestrin.profile.User;
import kestrin.profile.UserProfile;
import kestrin.profile.UserProfileElement;

/** A household's evening, against the development service. */
public final class EveningTest {
    private EveningTest() {}

    private static List<String> ids(UserProfile list) {
        return list.elements().stream().map(UserProfileElement::id).toList();
    }

    private static void ok(CompletableFuture<Response> change) {
        int status = change.join().status();
        that(status >= 200 && status < 300, "the status is " + status);
    }

    public static void aHouseholdSpendsItsEvening() {
        try (Service service = new Service();
                Household household = new Household();
                ProfileSession parent = household.session()) {
            equal(1L, household.warmUp().join());
            ok(parent.validateProfileName("Ännchen 🦊"));
            User anna = parent.createProfile(User.named("Ännchen 🦊", "fox", "kids")).join();
            User ben = parent.createProfile(User.named("Ben", "bear", "kids")).join();
            equal("Ännchen 🦊", anna.username());
            that(anna.profileID() != null, "the service gives an identifier");
            equal(3, parent.profiles().join().size());

            try (ProfileSession kid = household.session(anna.profileID());
                    ProfileSession other = household.session(ben.profileID())) {
                ok(kid.addHistoryVideo("v1", Duration.ofSeconds(90)));
                ok(kid.addHistoryVideo("v2", Duration.ofSeconds(1800), true));
                UserProfile history = kid.history().join();
                equal(List.of("v2", "v1"), ids(history));
                equal(Duration.ofSeconds(1800), history.elements().get(0).progress());
                equal(true, history.elements().get(0).isCompleted());
                equal(List.of("v1"), ids(kid.videoHistory("v1").join()));
                equal(List.of(), other.history().join().elements());

                ok(other.addFavoriteShow("s1"));
                ok(other.addFavoriteShows(
                        List.of(UserProfileElement.show("s2"), UserProfileElement.show("s3"))));
                equal(3, other.favorites().join().elements().size());
                equal("SHOW", other.favorites().join().elements().get(0).type());
                ok(other.addWatchListVideo("v7"));
                equal(List.of("v7"), ids(other.watchList().join()));
                that(
                        other.watchList().join().elements().get(0).autoAddTimestamp() != null,
                        "the service says when it was added");
            }

            ok(parent.editProfile(
                    new User(ben.profileID(), "Ben the Elder", "bear", "kids", false)));
            that(
                    parent.profiles().join().stream()
                            .anyMatch(user -> "Ben the Elder".equals(user.username())),
                    "the new name is there");
            ok(parent.deleteProfile(anna.profileID()));
            ok(parent.deleteProfile(ben.profileID()));
            equal(1, parent.profiles().join().size());
        }
    }

    public static void aSessionDoesAll22Operations() {
        try (Service service = new Service();
                Household household = new Household();
                ProfileSession session = household.session()) {
            AnonymousBind bind = session.bind().join();
            that(!bind.toString().contains(bind.token()), "a record shows no token");
            ok(session.validateProfileName("Cleo"));
            User user = session.createProfile(User.named("Cleo", "cat", "kids")).join();
            equal(2, session.profiles().join().size());
            ok(session.editProfile(new User(user.profileID(), "Cleo", "owl", "kids", true)));
            ok(session.deleteProfile(user.profileID()));
            ok(session.addHistoryVideo("v", Duration.ZERO, false));
            equal(1, session.history().join().elements().size());
            equal(1, session.videoHistory("v").join().elements().size());
            ok(session.deleteVideoHistory("v"));
            ok(session.clearHistory());
            equal(0, session.history().join().elements().size());
            ok(session.addFavoriteShow("s"));
            ok(session.addFavoriteShows(List.of(UserProfileElement.show("t"))));
            equal(2, session.favorites().join().elements().size());
            ok(session.deleteFavoriteShow("s"));
            ok(session.clearFavorites());
            equal(0, session.favorites().join().elements().size());
            ok(session.addWatchListVideo("w"));
            equal(1, session.watchList().join().elements().size());
            ok(session.deleteWatchListVideo("w"));
            ok(session.clearWatchList());
            ok(session.addSearchHistory("ß 漢字 👩‍🚀"));
            ok(session.deleteSearchHistory());
        }
    }

    public static void plainOperationsUseTheBindThatTheyAreGiven() {
        try (Service service = new Service()) {
            Profile profile = new Profile();
            AnonymousBind bind = profile.bind().join();
            equal(bind.profileID(), ConfigurationManager.heldBinds().selectedProfileID());
            Profile bound = profile.withBind(bind);
            ok(bound.validateProfileName("Dora"));
            User user = bound.createProfile(User.named("Dora", "dog", "kids")).join();
            equal(2, bound.profiles().join().size());
            ok(bound.editProfile(new User(user.profileID(), "Dora", "ant", "kids", false)));
            AnonymousBind doras = profile.withProfileID(user.profileID()).bind().join();
            equal(user.profileID(), doras.profileID());
            Profile dora = profile.withBind(doras);
            ok(dora.addHistoryVideo("v", Duration.ofSeconds(5)));
            equal(1, dora.history().join().elements().size());
            equal(0, bound.history().join().elements().size());
            equal(1, dora.videoHistory("v").join().elements().size());
            ok(dora.deleteVideoHistory("v"));
            ok(dora.clearHistory());
            ok(dora.addFavoriteShow("s"));
            ok(dora.addFavoriteShows(List.of(UserProfileElement.show("t"))));
            equal(2, dora.favorites().join().elements().size());
            ok(dora.deleteFavoriteShow("s"));
            ok(dora.clearFavorites());
            ok(dora.addWatchListVideo("w"));
            equal(1, dora.watchList().join().elements().size());
            ok(dora.deleteWatchListVideo("w"));
            ok(dora.clearWatchList());
            ok(dora.addSearchHistory("dogs"));
            ok(dora.deleteSearchHistory());
            ok(bound.deleteProfile(user.profileID()));

            SlingException refused =
                    failure(
                            SlingException.class,
                            profile.withBind(new AnonymousBind(bind.profileID(), "no.such.token"))
                                    .history());
            equal(403, refused.status());
            that(!refused.toString().contains("no.such.token"), "an error shows no token");
            that(!refused.requestID().isEmpty(), "an error says what the request is known by");
            that(!refused.problemTitle().isEmpty(), "an error has the reply's problem document");
        }
    }
}
