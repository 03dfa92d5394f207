package kestrin.profile.tests;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.UncheckedIOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Comparator;
import java.util.stream.Stream;
import kestrin.profile.ConfigurationManager;

/** The development service, for as long as it is open; the library is configured for it. */
final class Service implements AutoCloseable {
    private final Path folder;
    private final Process process;

    Service() {
        try {
            folder = Files.createTempDirectory("kestrin-java");
            process =
                    new ProcessBuilder(
                                    System.getProperty("kestrin.server"),
                                    "--port", "0",
                                    "--database", folder.resolve("db").toString(),
                                    "--write-config", configuration().toString(),
                                    "--quiet")
                            .redirectError(ProcessBuilder.Redirect.INHERIT)
                            .start();
            String line =
                    new BufferedReader(
                                    new InputStreamReader(
                                            process.getInputStream(), StandardCharsets.UTF_8))
                            .readLine();
            Tests.contains("ready", line);
            ConfigurationManager.setTransport(null);
            ConfigurationManager.dropBinds();
            ConfigurationManager.configure(Files.readString(configuration()));
        } catch (IOException problem) {
            throw new UncheckedIOException(problem);
        }
    }

    Path configuration() {
        return folder.resolve("config.json");
    }

    Path file(String name) {
        return folder.resolve(name);
    }

    @Override
    public void close() {
        process.destroy();
        try (Stream<Path> files = Files.walk(folder)) {
            process.waitFor();
            for (Path file : files.sorted(Comparator.reverseOrder()).toList()) Files.delete(file);
        } catch (IOException problem) {
            throw new UncheckedIOException(problem);
        } catch (InterruptedException problem) {
            throw new IllegalStateException(problem);
        }
    }
}
