import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.concurrent.CompletionException;
import kestrin.profile.ConfigurationManager;
import kestrin.profile.Household;
import kestrin.profile.KestrinException;
import kestrin.profile.ProfileSession;

/** Puts a video on the parent's watch list, and shows the list: First CONFIGURATION VIDEO */
public final class First {
    public static void main(String[] args) throws IOException {
        ConfigurationManager.configure(Files.readString(Path.of(args[0])));
        try (Household household = new Household();
                ProfileSession parent = household.session()) {
            parent.addWatchListVideo(args[1])
                    .thenCompose(added -> parent.watchList())
                    .thenAccept(list -> list.elements().forEach(each -> System.out.println(each.id())))
                    .join();
        } catch (CompletionException problem) {
            if (!(problem.getCause() instanceof KestrinException known)) throw problem;
            System.err.println(known.getMessage() + "\n" + known.advice());
            System.exit(1);
        }
    }
}
