package kestrin.profile.tests;

import static kestrin.profile.tests.Tests.equal;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.util.List;

/** The program that docs/java.md quotes, as processes of its own: they also end by themselves. */
public final class FirstProgramTest {
    private FirstProgramTest() {}

    private record Ended(int code, String output) {}

    private static Ended run(String program, Service service, String argument) throws Exception {
        Process process =
                new ProcessBuilder(
                                List.of(
                                        ProcessHandle.current().info().command().orElseThrow(),
                                        "-Xcheck:jni",
                                        "-cp", System.getProperty("java.class.path"),
                                        "-Dkestrin.profile.library="
                                                + System.getProperty("kestrin.profile.library"),
                                        program,
                                        service.configuration().toString(),
                                        argument))
                        .redirectErrorStream(true)
                        .start();
        String output =
                new String(process.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
        return new Ended(process.waitFor(), output);
    }

    public static void theFirstProgramShowsTheListAndSaysWhatIsWrong() throws Exception {
        try (Service service = new Service()) {
            equal(new Ended(0, "v1\n"), run("First", service, "v1"));
            equal(new Ended(0, "v2\nv1\n"), run("First", service, "v2"));
        }
    }

    public static void aProgramEndsWhileRequestsAreUnderWay() throws Exception {
        try (Service service = new Service()) {
            String program = Leaving.class.getName();
            for (int round = 0; round < 3; ++round) {
                equal(new Ended(3, ""), run(program, service, "exit"));
                equal(new Ended(3, ""), run(program, service, "inside"));
                equal(new Ended(0, ""), run(program, service, "return"));
            }
        }
    }
}
