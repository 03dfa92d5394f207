package kestrin.profile.tests;

import static kestrin.profile.tests.Tests.contains;
import static kestrin.profile.tests.Tests.equal;
import static kestrin.profile.tests.Tests.failure;
import static kestrin.profile.tests.Tests.that;
import static kestrin.profile.tests.Tests.thrown;

import java.time.Duration;
import java.util.concurrent.CancellationException;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.atomic.AtomicInteger;
import kestrin.profile.AnonymousBind;
import kestrin.profile.ConfigurationManager;
import kestrin.profile.ConfigurationManagerException;
import kestrin.profile.ErrorNotice;
import kestrin.profile.Household;
import kestrin.profile.HouseholdOptions;
import kestrin.profile.InvalidCallException;
import kestrin.profile.Outbox;
import kestrin.profile.OutboxException;
import kestrin.profile.OutboxOptions;
import kestrin.profile.Profile;
import kestrin.profile.ProfileException;
import kestrin.profile.ProfileSession;
import kestrin.profile.RetryPolicy;
import kestrin.profile.SlingErrorKind;
import kestrin.profile.SlingException;
import kestrin.profile.User;
import kestrin.profile.UserProfile;

/** Every way in which something can go wrong arrives as its own type. */
public final class ErrorsTest {
    private static final String PROBLEM =
            "{\"type\": \"about:full\", \"title\": \"Full\", \"detail\": \"There are ten.\"}";

    private ErrorsTest() {}

    public static void anErrorStatusIsASlingExceptionWithTheProblemDocument() {
        FakeTransport.answering(422, PROBLEM);
        SlingException problem = failure(SlingException.class, new Profile().watchList());
        equal(SlingErrorKind.HTTP_STATUS, problem.kind());
        equal(422, problem.status());
        equal("HalvardSling.SlingError", problem.domain());
        equal(ErrorNotice.MEND_INPUT, problem.notice());
        that(!problem.advice().isEmpty(), "there is an advice");
        that(!problem.requestID().isEmpty(), "there is a request identifier");
    }

    public static void whatGoesWrongOnTheWayKeepsItsKind() {
        for (SlingErrorKind kind : SlingErrorKind.values()) {
            // The status comes with a reply; the transport's end is no error.
            if (kind == SlingErrorKind.HTTP_STATUS
                    || kind == SlingErrorKind.CANCELLED
                    || kind == SlingErrorKind.UNKNOWN) continue;
            FakeTransport transport = FakeTransport.keeping();
            CompletableFuture<UserProfile> list = new Profile().history();
            transport.next().transfer().fail(kind, "it broke");
            SlingException problem = failure(SlingException.class, list);
            equal(kind, problem.kind());
            equal(0, problem.status());
            contains("it broke", problem.getMessage());
        }
    }

    public static void aTransferThatTheTransportEndsIsCancelled() {
        FakeTransport transport = FakeTransport.keeping();
        CompletableFuture<UserProfile> list = new Profile().history();
        transport.next().transfer().fail(SlingErrorKind.CANCELLED, null);
        failure(CancellationException.class, list);
        that(list.isCancelled(), "the future says so");
    }

    public static void theOperationsHaveErrorsOfTheirOwn() {
        FakeTransport.answering(200, "{}");
        equal(
                ProfileException.Reason.USER_SERIALIZATION_ERROR,
                failure(ProfileException.class, new Profile().profiles()).reason());
        equal(
                ProfileException.Reason.USER_INVALID_FOR_OPERATION,
                failure(
                                ProfileException.class,
                                new Profile().editProfile(User.named("a", "b", "c")))
                        .reason());
    }

    public static void withoutAConfigurationNothingIsSent() {
        FakeTransport transport = FakeTransport.answering(200, "{}");
        ConfigurationManager.removeConfiguration();
        ConfigurationManagerException problem =
                failure(ConfigurationManagerException.class, new Profile().history());
        equal(ConfigurationManagerException.Reason.SERVICE_NOT_CONFIGURED, problem.reason());
        equal(0, transport.sent.get());
    }

    public static void aConfigurationWithProblemsIsRefusedWithAllOfThem() {
        InvalidCallException problem =
                thrown(
                        InvalidCallException.class,
                        () -> ConfigurationManager.configure("{\"version\": 1, \"servces\": {}}"));
        equal(InvalidCallException.Reason.INVALID_ARGUMENT, problem.reason());
        contains("servces", problem.getMessage());
        thrown(InvalidCallException.class, () -> ConfigurationManager.configure(null));
    }

    public static void whatAnOperationNeedsIsNamed() {
        FakeTransport transport = FakeTransport.answering(200, "{}");
        contains(
                "video_id",
                failure(InvalidCallException.class, new Profile().addWatchListVideo(null))
                        .getMessage());
        contains(
                "progress",
                failure(InvalidCallException.class, new Profile().addHistoryVideo("v", null))
                        .getMessage());
        ConfigurationManagerException problem =
                failure(
                        ConfigurationManagerException.class,
                        new Profile().addHistoryVideo("v", Duration.ofSeconds(-1)));
        equal(ConfigurationManagerException.Reason.INVALID_PARAMETERS, problem.reason());
        equal(0, transport.sent.get());
    }

    public static void halfOfASurrogatePairIsNoText() {
        FakeTransport transport = FakeTransport.answering(200, "{}");
        InvalidCallException problem =
                failure(
                        InvalidCallException.class,
                        new Profile().addSearchHistory("half \uD83E of a fox"));
        equal(InvalidCallException.Reason.INVALID_UTF8, problem.reason());
        contains("search", problem.getMessage());
        equal(0, transport.sent.get());
    }

    public static void aBindThatNoHeaderMayCarryIsRefused() {
        FakeTransport.answering(200, "{}");
        SlingException problem =
                failure(
                        SlingException.class,
                        new Profile().withBind(new AnonymousBind("p", "a\nb")).history());
        equal(SlingErrorKind.FORBIDDEN_HEADER, problem.kind());
        that(!problem.getMessage().contains("a\nb"), "the message shows no token");
    }

    public static void whatWasClosedIsUsedNoMore() {
        FakeTransport.answering(200, "{}");
        Household household = new Household();
        ProfileSession session = household.session();
        Outbox outbox = household.openOutbox();
        session.close();
        session.close();
        failure(IllegalStateException.class, session.history());
        outbox.close();
        contains("outbox", thrown(IllegalStateException.class, outbox::entries).getMessage());
        failure(IllegalStateException.class, outbox.settled());
        household.close();
        thrown(IllegalStateException.class, household::session);
        failure(IllegalStateException.class, household.warmUp());
    }

    public static void aFullOutboxSaysSo() {
        FakeTransport.keeping();
        try (Household household = new Household();
                Outbox outbox = household.openOutbox(OutboxOptions.defaults().withMaxEntries(1));
                ProfileSession kid = household.session("kid")) {
            kid.later(outbox).addWatchListVideo("v1").join();
            OutboxException problem =
                    failure(OutboxException.class, kid.later(outbox).addWatchListVideo("v2"));
            equal(OutboxException.Reason.FULL, problem.reason());
        }
    }

    public static void aPolicyThatIsNoneIsRefused() {
        thrown(
                InvalidCallException.class,
                () -> new Household(
                        HouseholdOptions.defaults()
                                .withRetry(
                                        RetryPolicy.defaults()
                                                .withDeadline(Duration.ofMillis(-1)))));
    }

    public static void whatATransportThrewAtIsAnErrorAndNotCreatedTwice() {
        FakeTransport.keeping();
        AtomicInteger sent = new AtomicInteger();
        ConfigurationManager.setTransport(
                (request, transfer) -> {
                    sent.incrementAndGet();
                    throw new IllegalStateException("a mistake of the application's");
                });
        Thread.UncaughtExceptionHandler former = Thread.getDefaultUncaughtExceptionHandler();
        CompletableFuture<Throwable> told = new CompletableFuture<>();
        Thread.setDefaultUncaughtExceptionHandler((thread, problem) -> told.complete(problem));
        try (Household household = new Household();
                ProfileSession parent = household.session("parent")) {
            SlingException problem =
                    failure(
                            SlingException.class,
                            parent.createProfile(User.named("Kit", null, null)));
            equal(SlingErrorKind.CONNECTION_LOST, problem.kind());
            equal(1, sent.get());
        }
        equal("a mistake of the application's", told.join().getMessage());
        Thread.setDefaultUncaughtExceptionHandler(former);
    }

    public static void aTransferThatFailsWithoutAKindFailsItsRequest() {
        FakeTransport transport = FakeTransport.keeping();
        CompletableFuture<?> history = new Profile().history();
        transport.next().transfer().fail(null, null);
        equal(
                SlingErrorKind.CONNECTION_LOST,
                failure(SlingException.class, history).kind());
    }
}
