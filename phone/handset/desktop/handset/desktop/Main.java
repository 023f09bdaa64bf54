package handset.desktop;

import handset.Platform;
import java.nio.file.Path;

/** A phone without a screen: runs one midlet from its archive and reports what a person would see. */
public final class Main {
    private Main() {}

    public static void main(String[] arguments) {
        int status;
        try {
            Options options = Options.parse(arguments);
            if (options.help) {
                System.out.print(Options.HELP);
                System.exit(0);
            }
            Archive archive = new Archive(Path.of(options.archive));
            Phone phone = new Phone(options, archive);
            Platform.install(phone);
            status = phone.run();
        } catch (UsageException misuse) {
            System.err.println("handset: " + misuse.getMessage());
            status = 2;
        }
        System.exit(status);
    }
}
