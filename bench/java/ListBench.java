import com.fasterxml.jackson.core.JsonParser;
import com.fasterxml.jackson.databind.DeserializationContext;
import com.fasterxml.jackson.databind.JsonDeserializer;
import com.fasterxml.jackson.databind.ObjectMapper;
import com.fasterxml.jackson.databind.module.SimpleModule;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Instant;
import java.util.Arrays;
import java.util.List;
import java.util.function.IntSupplier;
import java.util.stream.Collectors;
import java.util.stream.IntStream;
import kestrin.profile.AnonymousBind;
import kestrin.profile.ConfigurationManager;
import kestrin.profile.Header;
import kestrin.profile.Profile;

/**
 * Measures how long the text of a list takes to become Java objects: the whole call of the library, dates
 * included, beside Jackson, which decodes alone, to the same values and to ones whose dates stay texts.
 * ListBench CONFIGURATION RESULTS
 *
 * <p>RESULTS is written as Google Benchmark does.
 */
public final class ListBench {
    private static final int ENTRIES = 500;
    private static final int WARM_UP = 5_000;
    private static final int FIGURES = 21;
    private static final int CALLS_OF_A_FIGURE = 200;

    /** As an application would write it for Jackson. */
    public record Element(
            String id, String type, Long progress, Boolean isCompleted, Instant autoAddTimestamp) {}

    public record Entries(String id, Long maxSize, List<Element> elements) {}

    /** The same with the date as it came. */
    public record ElementOfTexts(
            String id, String type, Long progress, Boolean isCompleted, String autoAddTimestamp) {}

    public record EntriesOfTexts(String id, Long maxSize, List<ElementOfTexts> elements) {}

    private static final class DateReader extends JsonDeserializer<Instant> {
        @Override
        public Instant deserialize(JsonParser parser, DeserializationContext context) throws IOException {
            return Instant.parse(parser.getText());
        }
    }

    private record Subject(String name, IntSupplier decode, double[] rates) {}

    public static void main(String[] args) throws IOException {
        byte[] text = listText().getBytes(StandardCharsets.UTF_8);
        ConfigurationManager.configure(Files.readString(Path.of(args[0])));
        ConfigurationManager.storeBind(new AnonymousBind("parent", "the.parents.token"));
        List<Header> headers = List.of(new Header("Content-Type", "application/json"));
        ConfigurationManager.setTransport((request, transfer) -> transfer.finish(200, headers, text));

        Profile profile = new Profile();
        ObjectMapper mapper =
                new ObjectMapper()
                        .registerModule(new SimpleModule().addDeserializer(Instant.class, new DateReader()));
        List<Subject> subjects =
                List.of(
                        subject("KestrinProfile", () -> profile.history().join().elements().size()),
                        subject("Jackson", () -> decoded(mapper, text, Entries.class).elements().size()),
                        subject(
                                "Jackson, dates as texts",
                                () -> decoded(mapper, text, EntriesOfTexts.class).elements().size()));
        for (int done = 0; done < WARM_UP; ++done)
            for (Subject subject : subjects) call(subject.decode());
        // By turns, so that peers meet the same minute.
        for (int figure = 0; figure < FIGURES; ++figure)
            for (Subject subject : subjects) subject.rates()[figure] = rate(subject.decode());
        Files.writeString(
                Path.of(args[1]),
                subjects.stream()
                        .map(ListBench::record)
                        .collect(Collectors.joining(",", "{\"benchmarks\": [", "]}\n")));
        System.exit(0);
    }

    private static Subject subject(String name, IntSupplier decode) {
        return new Subject(name, decode, new double[FIGURES]);
    }

    private static String listText() {
        return IntStream.range(0, ENTRIES)
                .mapToObj(
                        index ->
                                "{\"id\": \"the-long-way-s%d-e%d\", \"type\": \"VIDEO\", \"progress\": %d, "
                                        .formatted(index / 10, index, index * 7)
                                        + "\"isCompleted\": %b, \"autoAddTimestamp\": \"2017-03-09T18:25:43.511Z\"}"
                                                .formatted(index % 3 == 0))
                .collect(Collectors.joining(",", "{\"id\": \"history\", \"maxSize\": 500, \"elements\": [", "]}"));
    }

    private static <T> T decoded(ObjectMapper mapper, byte[] text, Class<T> type) {
        try {
            return mapper.readValue(text, type);
        } catch (IOException problem) {
            throw new IllegalStateException(problem);
        }
    }

    private static void call(IntSupplier decode) {
        if (decode.getAsInt() != ENTRIES) throw new IllegalStateException("not all are there");
    }

    /** Entries per second. */
    private static double rate(IntSupplier decode) {
        long start = System.nanoTime();
        for (int done = 0; done < CALLS_OF_A_FIGURE; ++done) call(decode);
        return 1e9 * CALLS_OF_A_FIGURE * ENTRIES / (System.nanoTime() - start);
    }

    private static String record(Subject subject) {
        double median = Arrays.stream(subject.rates()).sorted().skip(FIGURES / 2).findFirst().orElseThrow();
        return "{\"name\": \"java_list/%s/%d\", \"items_per_second\": %f}"
                .formatted(subject.name(), ENTRIES, median);
    }
}
