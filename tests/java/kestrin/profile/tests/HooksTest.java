package kestrin.profile.tests;

import static kestrin.profile.tests.Tests.contains;
import static kestrin.profile.tests.Tests.equal;
import static kestrin.profile.tests.Tests.failure;
import static kestrin.profile.tests.Tests.that;
import static kestrin.profile.tests.Tests.thrown;

import java.lang.ref.WeakReference;
import java.nio.charset.StandardCharsets;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.LinkedBlockingQueue;
import kestrin.profile.AnonymousBind;
import kestrin.profile.BindStore;
import kestrin.profile.ConfigurationManager;
import kestrin.profile.Header;
import kestrin.profile.HeldBinds;
import kestrin.profile.Household;
import kestrin.profile.HouseholdEvent;
import kestrin.profile.HouseholdOptions;
import kestrin.profile.Inside;
import kestrin.profile.Operation;
import kestrin.profile.Profile;
import kestrin.profile.ProfileSession;
import kestrin.profile.RetryPolicy;
import kestrin.profile.SessionOptions;
import kestrin.profile.SlingException;
import kestrin.profile.TransferRequest;
import kestrin.profile.User;
import kestrin.profile.UserProfile;

/** What an application brings, and where it is called. */
public final class HooksTest {
    private static final byte[] LIST = "{\"elements\": []}".getBytes(StandardCharsets.UTF_8);

    private HooksTest() {}

    /** A store that tells of what it is to keep. */
    private record Store(HeldBinds kept, BlockingQueue<HeldBinds> saved) implements BindStore {
        @Override
        public HeldBinds load() {
            return kept;
        }

        @Override
        public void save(HeldBinds held) {
            saved.add(held);
        }
    }

    public static void aBindStoreGivesAndKeepsBinds() {
        FakeTransport.answering(200, "{}");
        AnonymousBind kept = new AnonymousBind("kept", "a.kept.token");
        Store store = new Store(new HeldBinds(List.of(kept), "kept"), new LinkedBlockingQueue<>());
        ConfigurationManager.setBindStore(store);
        equal(store.kept(), ConfigurationManager.heldBinds());
        AnonymousBind other = new AnonymousBind("other", "another.token");
        ConfigurationManager.storeBind(other);
        equal(new HeldBinds(List.of(kept, other), "kept"), FakeTransport.taken(store.saved()));
        ConfigurationManager.selectProfile("other");
        equal("other", FakeTransport.taken(store.saved()).selectedProfileID());
        ConfigurationManager.dropBinds();
        equal(List.of(), FakeTransport.taken(store.saved()).binds());
        ConfigurationManager.setBindStore(null);
    }

    public static void aBindStoreThatFailsChangesNothing() {
        FakeTransport.answering(200, "{}");
        HeldBinds before = ConfigurationManager.heldBinds();
        BindStore broken =
                new BindStore() {
                    @Override
                    public HeldBinds load() {
                        throw new IllegalStateException("locked");
                    }

                    @Override
                    public void save(HeldBinds held) {}
                };
        thrown(IllegalStateException.class, () -> ConfigurationManager.setBindStore(broken));
        equal(before, ConfigurationManager.heldBinds());
    }

    public static void aTransportGetsTheWholeRequest() {
        FakeTransport transport = FakeTransport.keeping();
        new Profile().addSearchHistory("fox 🦊");
        TransferRequest request = transport.next().request();
        equal(Operation.ADD_SEARCH_HISTORY.serviceName(), request.operation());
        contains("fox%20%F0%9F%A6%8A", request.url());
        contains("{", new String(request.body(), StandardCharsets.UTF_8));
        that(
                request.headers().stream().anyMatch(each -> each.value().contains("the.kids.token")),
                "the token is in a header");
        that(!request.toString().contains("the.kids.token"), "its text holds no secret");
        that(request.totalTimeout().toMillis() > 0, "it has a time limit");
    }

    public static void aReplyKeepsItsHeadersAndBytes() {
        FakeTransport transport = FakeTransport.keeping();
        var change = new Profile().clearWatchList();
        byte[] body = {0, (byte) 0xFF, (byte) 0xC3, 7};
        transport.next().transfer().finish(200, List.of(new Header("X-Name", "value")), body);
        equal(List.of(new Header("X-Name", "value")), change.join().headers());
        that(java.util.Arrays.equals(body, change.join().body()), "the body is as it was");
    }

    public static void everyTextArrivesAsItIs() {
        FakeTransport transport = FakeTransport.keeping();
        String text = "\u0000 ß 漢字 👩‍🚀 \uFFFF";
        var created = new Profile().createProfile(User.named(text, "", null));
        FakeTransport.Sent sent = transport.next();
        contains(
                "ß 漢字 👩‍🚀 \uFFFF", new String(sent.request().body(), StandardCharsets.UTF_8));
        contains("\\u0000", new String(sent.request().body(), StandardCharsets.UTF_8));
        String reply =
                "{\"profileId\": \"p\", \"username\": \"\\u0000 ß 漢字 👩‍🚀 \uFFFF\", \"avatar\": \"\"}";
        sent.transfer().finish(200, FakeTransport.JSON, reply.getBytes(StandardCharsets.UTF_8));
        equal(text, created.join().username());
        equal("", created.join().avatar());
        equal(null, created.join().group());
    }

    public static void aReplyThatIsNoneFailsTheRequest() {
        FakeTransport transport = FakeTransport.keeping();
        CompletableFuture<UserProfile> list = new Profile().history();
        transport.next().transfer().finish(7, List.of(), LIST);
        failure(SlingException.class, list);
    }

    public static void aLogIsToldOfOneEventAfterTheOther() {
        FakeTransport transport = FakeTransport.keeping();
        List<HouseholdEvent> events = new ArrayList<>();
        BlockingQueue<Runnable> tasks = new LinkedBlockingQueue<>();
        RetryPolicy policy =
                RetryPolicy.defaults()
                        .withMaxAttempts(3)
                        .withDelays(Duration.ofMillis(1), Duration.ofMillis(1))
                        .withBudget(new RetryPolicy.Budget(0, 9, 9));
        try (Household household =
                        new Household(
                                HouseholdOptions.defaults()
                                        .withRetry(policy)
                                        .withLog(events::add)
                                        .withExecutor(tasks::add));
                ProfileSession kid = household.session("kid")) {
            CompletableFuture<UserProfile> list = kid.history();
            for (int attempt = 1; attempt <= 3; ++attempt)
                transport.next().transfer().finish(503, List.of(), new byte[0]);
            Runnable telling = FakeTransport.taken(tasks);
            // While that has not run, no other event is handed out: the next task is the result.
            FakeTransport.taken(tasks).run();
            that(list.isDone(), "it was another event");
            equal(503, failure(SlingException.class, list).status());
            equal(List.of(), events);
            telling.run();
            equal(
                    List.of(
                            HouseholdEvent.Kind.REPEAT,
                            HouseholdEvent.Kind.REPEAT,
                            HouseholdEvent.Kind.GIVEN_UP),
                    events.stream().map(HouseholdEvent::kind).toList());
            equal(List.of(2, 3, 3), events.stream().map(HouseholdEvent::attempt).toList());
            equal(Operation.GET_HISTORY, events.get(0).operation());
            equal("503", events.get(0).reason());
        }
    }

    public static void aSessionMaySendOnce() {
        FakeTransport transport = FakeTransport.keeping();
        try (Household household = new Household();
                ProfileSession kid = household.session(SessionOptions.of("kid").sentOnce())) {
            CompletableFuture<UserProfile> list = kid.history();
            transport.next().transfer().finish(503, List.of(), new byte[0]);
            failure(SlingException.class, list);
            equal(1, transport.sent.get());
        }
    }

    public static void futuresAreCompletedByTheHouseholdsExecutor() {
        FakeTransport transport = FakeTransport.keeping();
        ExecutorService executor =
                Executors.newSingleThreadExecutor(task -> new Thread(task, "the window's thread"));
        try (Household household =
                        new Household(HouseholdOptions.defaults().withExecutor(executor));
                ProfileSession kid = household.session("kid")) {
            CompletableFuture<String> name =
                    kid.history().thenApply(list -> Thread.currentThread().getName());
            transport.next().transfer().finish(200, FakeTransport.JSON, LIST);
            equal("the window's thread", name.join());
        } finally {
            executor.shutdown();
        }
    }

    public static void anExecutorThatWasShutDownLeavesNobodyWaiting() {
        FakeTransport transport = FakeTransport.keeping();
        ExecutorService executor = Executors.newSingleThreadExecutor();
        CompletableFuture<UserProfile> list = new Profile().withExecutor(executor).history();
        executor.shutdown();
        transport.next().transfer().finish(200, FakeTransport.JSON, LIST);
        equal(List.of(), list.join().elements());
    }

    public static void aHouseholdThatNobodyCanReachIsClosed() {
        FakeTransport.answering(200, "{\"elements\": []}");
        WeakReference<Household> dropped = useOnce();
        // Its log is what the library holds of it, and lets go of with it; the transport stays.
        while (dropped.get() != null || Inside.held() > 1) System.gc();
    }

    private static WeakReference<Household> useOnce() {
        Household household = new Household(HouseholdOptions.defaults().withLog(event -> {}));
        household.session("kid").history().join();
        return new WeakReference<>(household);
    }

    public static void aRequestUnderWayKeepsItsHousehold() {
        FakeTransport transport = FakeTransport.keeping();
        CompletableFuture<UserProfile> list = new Household().session("kid").history();
        FakeTransport.Sent sent = transport.next();
        for (int round = 0; round < 5; ++round) System.gc();
        that(!list.isDone(), "nobody has cancelled it");
        sent.transfer().finish(200, FakeTransport.JSON, LIST);
        equal(List.of(), list.join().elements());
    }

    public static void aPolicyComesBackAsItWasGiven() {
        RetryPolicy policy = RetryPolicy.defaults();
        equal(4, policy.maxAttempts());
        equal(Duration.ofSeconds(60), policy.deadline());
        equal(List.of(429, 502, 503, 504), policy.statuses());
        that(policy.idempotentMethods().contains("PUT"), "PUT is idempotent");
        equal(1, RetryPolicy.never().maxAttempts());
    }
}
