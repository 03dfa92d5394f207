package kestrin.profile.tests;

import java.nio.file.Files;
import java.nio.file.Path;
import kestrin.profile.ConfigurationManager;
import kestrin.profile.Household;
import kestrin.profile.HouseholdOptions;
import kestrin.profile.ProfileSession;

/** A program that ends while requests are under way: Leaving CONFIGURATION exit|return|inside */
public final class Leaving {
    private Leaving() {}

    public static void main(String[] args) throws Exception {
        ConfigurationManager.configure(Files.readString(Path.of(args[0])));
        Household household =
                new Household(HouseholdOptions.defaults().withExecutor(Runnable::run));
        ProfileSession parent = household.session();
        parent.watchList().join();
        for (int request = 0; request < 50; ++request) parent.watchList();
        switch (args[1]) {
            case "exit" -> System.exit(3);
            case "inside" -> parent.watchList().thenRun(() -> System.exit(3)).join();
            default -> {}
        }
    }
}
