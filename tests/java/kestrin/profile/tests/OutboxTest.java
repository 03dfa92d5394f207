package kestrin.profile.tests;

import static kestrin.profile.tests.Tests.equal;
import static kestrin.profile.tests.Tests.failure;
import static kestrin.profile.tests.Tests.that;

import java.time.Duration;
import java.util.List;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.LinkedBlockingQueue;
import kestrin.profile.Household;
import kestrin.profile.HouseholdOptions;
import kestrin.profile.KestrinException;
import kestrin.profile.Operation;
import kestrin.profile.Outbox;
import kestrin.profile.OutboxEntry;
import kestrin.profile.OutboxEvent;
import kestrin.profile.OutboxOptions;
import kestrin.profile.OutboxState;
import kestrin.profile.OutboxWrite;
import kestrin.profile.PlaybackReporter;
import kestrin.profile.ProfileSession;
import kestrin.profile.ReporterOptions;
import kestrin.profile.RetryPolicy;
import kestrin.profile.SlingException;
import kestrin.profile.UserProfileElement;

/** Writes that are kept, and the playback reporter. */
public final class OutboxTest {
    private OutboxTest() {}

    public static void keptWritesReachTheService() {
        BlockingQueue<OutboxEvent> events = new LinkedBlockingQueue<>();
        // A thread for each: they would overtake each other.
        HouseholdOptions options =
                HouseholdOptions.defaults().withExecutor(task -> new Thread(task).start());
        try (Service service = new Service();
                Household household = new Household(options);
                ProfileSession parent = household.session();
                Outbox outbox =
                        household.openOutbox(
                                OutboxOptions.defaults().withFile(service.file("ö.outbox")));
                Outbox.Watch watch = outbox.watch(events::add)) {
            equal(new OutboxState(0, 0, List.of()), outbox.opening().join());
            List<OutboxEntry> kept =
                    List.of(
                            parent.later(outbox).addWatchListVideo("v1").join(),
                            parent.later(outbox)
                                    .addHistoryVideo("v2", Duration.ofSeconds(7), true)
                                    .join(),
                            parent.later(outbox)
                                    .addFavoriteShows(List.of(UserProfileElement.show("s")))
                                    .join(),
                            parent.later(outbox).addSearchHistory("kept 🦊").join());
            equal(Operation.ADD_HISTORY_VIDEO, kept.get(1).write().operation());
            equal(Duration.ofSeconds(7), kept.get(1).write().progress());
            equal("s", kept.get(2).write().shows().get(0).id());
            equal("kept 🦊", kept.get(3).write().itemID());
            for (OutboxEntry each : kept) {
                OutboxEvent event = FakeTransport.taken(events);
                equal(OutboxEvent.Kind.SENT, event.kind());
                equal(each.write(), event.entry().write());
                equal(each.number(), event.entry().number());
            }
            equal(0L, outbox.settled().join().waiting());
            equal(1, parent.watchList().join().elements().size());
            equal(1, parent.favorites().join().elements().size());
            equal(true, parent.history().join().elements().get(0).isCompleted());
        }
    }

    public static void writesOutliveTheOutboxInItsFile() {
        try (Service service = new Service()) {
            OutboxOptions options = OutboxOptions.defaults().withFile(service.file("outbox"));
            FakeTransport.keeping();
            try (Household household = new Household();
                    Outbox outbox = household.openOutbox(options)) {
                outbox.add(write("v1")).join();
                long dropped = outbox.add(write("v2")).join().number();
                equal(2, outbox.entries().size());
                equal(true, outbox.drop(dropped).join());
                equal(false, outbox.drop(dropped).join());
                equal(List.of(), outbox.refused());
            }
            try (Household household = new Household();
                    Outbox outbox = household.openOutbox(options)) {
                equal(1L, outbox.opening().join().waiting());
                equal(write("v1"), outbox.entries().get(0).write());
            }
        }
    }

    private static OutboxWrite write(String video) {
        return new OutboxWrite(
                "kid", null, Operation.ADD_WATCH_LIST_VIDEO, video, List.of(), null, null);
    }

    public static void whatTheServiceRefusesIsKeptWithTheReason() {
        FakeTransport.answering(422, "{\"title\": \"No such video\"}");
        BlockingQueue<OutboxEvent> events = new LinkedBlockingQueue<>();
        try (Household household = new Household();
                Outbox outbox = household.openOutbox();
                Outbox.Watch watch = outbox.watch(events::add)) {
            outbox.add(write("v1")).join();
            OutboxEvent event = FakeTransport.taken(events);
            equal(OutboxEvent.Kind.REFUSED, event.kind());
            equal(422, event.entry().refusal().status());
            equal(1, outbox.refused().size());
            outbox.networkIsBack();
            outbox.bindIsNew("kid");
        }
    }

    public static void aReporterWritesWhereSomebodyStopped() {
        FakeTransport transport = FakeTransport.keeping();
        try (Household household = new Household();
                PlaybackReporter reporter =
                        household.reporter(ReporterOptions.of("kid", "film"))) {
            reporter.position(Duration.ofSeconds(42));
            reporter.position(Duration.ofNanos(-1));
            reporter.paused();
            FakeTransport.Sent sent = transport.next();
            equal(Operation.ADD_HISTORY_VIDEO.serviceName(), sent.request().operation());
            Tests.contains("42", new String(sent.request().body()));
            sent.transfer().finish(200, FakeTransport.JSON, new byte[] {'{', '}'});
        }
    }

    public static void aReporterTellsOfWhatWasNotTaken() {
        FakeTransport.answering(403, "{}");
        BlockingQueue<KestrinException> problems = new LinkedBlockingQueue<>();
        try (Household household =
                        new Household(HouseholdOptions.defaults().withRetry(RetryPolicy.never()));
                PlaybackReporter reporter =
                        household.reporter(
                                ReporterOptions.of("kid", "film").withFailed(problems::add))) {
            reporter.moved(Duration.ofSeconds(3));
            reporter.position(null);
            reporter.inBackground();
            KestrinException problem = FakeTransport.taken(problems);
            that(problem instanceof SlingException, "it is typed: " + problem);
            reporter.finished();
        }
    }

    public static void aReportersWritesAreKept() {
        FakeTransport.keeping();
        try (Household household = new Household();
                Outbox outbox = household.openOutbox()) {
            try (PlaybackReporter reporter =
                    household.reporter(ReporterOptions.of("kid", "film").withOutbox(outbox))) {
                reporter.position(Duration.ofSeconds(5));
            }
            while (outbox.entries().isEmpty()) Thread.onSpinWait();
            equal("film", outbox.entries().get(0).write().itemID());
            Outbox.Watch watch = outbox.watch(event -> {});
            watch.close();
            watch.close();
        }
    }

    public static void aClosedOutboxKeepsNothing() {
        FakeTransport.keeping();
        try (Household household = new Household();
                ProfileSession kid = household.session("kid")) {
            Outbox outbox = household.openOutbox();
            outbox.close();
            failure(IllegalStateException.class, kid.later(outbox).clearHistory());
        }
    }
}
