import java.io.FileInputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.util.Map;
import java.util.jar.JarInputStream;

/** Prints the manifest of an archive as one finds it who reads the archive from its first byte on. */
public class StreamedManifest {
    public static void main(String[] arguments) throws IOException {
        try (JarInputStream archive = new JarInputStream(new FileInputStream(arguments[0]));
                PrintStream out = new PrintStream(System.out, false, "UTF-8")) {
            for (Map.Entry<Object, Object> line : archive.getManifest().getMainAttributes().entrySet())
                out.print(line.getKey() + ": " + line.getValue() + "\n");
        }
    }
}
