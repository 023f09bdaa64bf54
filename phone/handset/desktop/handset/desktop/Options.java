package handset.desktop;

import java.util.ArrayList;
import java.util.List;

/** The command line. */
final class Options {
    static final String HELP = String.join("\n",
        "java -jar handset.jar ARCHIVE.jar [options]: runs a midlet as a phone without a screen does.",
        "",
        "  --pictures DIR   what the phone's camera sees: the *.jpg files of the folder, over and over",
        "  --second DIR     what its secondary camera sees",
        "  --source NAME    the entry to choose from the midlet's first list",
        "  --frames N       ends after N snapshots, or N pictures painted; without it, when the midlet does",
        "  --out DIR        where each painted picture of the screen is written, as NNNN.png",
        "  --press LABEL@N  presses the command of that label after N snapshots or painted pictures; any number of times",
        "  --screen WxH     size of the screen (240x320)",
        "  --timeout S      gives up after S seconds (60); 0 never does",
        "",
        "Ends with status 0 when the frames were reached or the midlet ended itself, with 1 when it showed an error or the",
        "time is over, with 2 for arguments that make no sense.",
        "");

    /** A command to press, once that many frames have gone by. */
    record Press(String label, int afterFrames) {}

    String archive;
    String pictures;
    String second;
    String source;
    String out;
    int frames;
    int timeout = 60;
    int width = 240;
    int height = 320;
    boolean help;
    final List<Press> presses = new ArrayList<>();

    static Options parse(String[] arguments) throws UsageException {
        Options options = new Options();
        for (int i = 0; i < arguments.length; ++i) {
            String argument = arguments[i];
            if (argument.equals("--help")) {
                options.help = true;
            } else if (!argument.startsWith("--")) {
                if (options.archive != null) {
                    throw new UsageException("one archive at a time, not " + argument + " too");
                }
                options.archive = argument;
            } else if (i + 1 == arguments.length) {
                throw new UsageException(argument + " needs a value; --help tells more");
            } else {
                options.take(argument, arguments[++i]);
            }
        }
        if (options.archive == null && !options.help) {
            throw new UsageException("which archive? --help tells more");
        }
        return options;
    }

    private void take(String name, String value) throws UsageException {
        switch (name) {
        case "--pictures" -> pictures = value;
        case "--second" -> second = value;
        case "--source" -> source = value;
        case "--out" -> out = value;
        case "--frames" -> frames = number(name, value, 1);
        case "--timeout" -> timeout = number(name, value, 0);
        case "--screen" -> {
            String[] sides = value.split("x", -1);
            if (sides.length != 2) {
                throw new UsageException("--screen takes a size such as 240x320, not " + value);
            }
            width = number(name, sides[0], 16);
            height = number(name, sides[1], 16);
        }
        case "--press" -> {
            int at = value.lastIndexOf('@');
            if (at < 1) {
                throw new UsageException("--press takes LABEL@N, not " + value);
            }
            presses.add(new Press(value.substring(0, at), number(name, value.substring(at + 1), 0)));
        }
        default -> throw new UsageException("no such option: " + name + "; --help tells more");
        }
    }

    private static int number(String name, String value, int least) throws UsageException {
        try {
            int number = Integer.parseInt(value);
            if (number >= least && number <= 1_000_000) {
                return number;
            }
        } catch (NumberFormatException noNumber) {
            // Said below.
        }
        throw new UsageException(name + " takes a number from " + least + " to 1000000, not " + value);
    }
}
