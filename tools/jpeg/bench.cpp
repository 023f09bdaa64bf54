// bench: how long a decode of these files takes, turn by turn.

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "tools/jpeg/commands.h"
#include "tools/jpeg/files.h"
#include "tools/jpeg/picture.h"

namespace jpegtool {
namespace {

struct Subject {
    std::string path;
    Bytes stream;
    double pixels = 0;
    std::vector<double> times; // in microseconds
};

double TimeDecode(const Subject& subject, Engine engine) {
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    const auto outcome = Decode(subject.stream, engine);
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

// Reads the files and leaves out those that cannot be decoded, with a word.
std::vector<Subject> ReadSubjects(const Options& options) {
    std::vector<Subject> subjects;
    for (const std::string& path : options.inputs) {
        try {
            Subject subject{path, ReadFile(path), 0, {}};
            const auto outcome = Decode(subject.stream, options.engine);
            if (const std::string* const reason = std::get_if<std::string>(&outcome))
                throw FileError(path + ": " + *reason);
            const Picture& picture = std::get<Picture>(outcome);
            subject.pixels = static_cast<double>(picture.Width()) * picture.Height();
            subjects.push_back(std::move(subject));
        } catch (const FileError& error) {
            Complain(error.what());
        }
    }
    return subjects;
}

} // namespace

int RunBench(const Options& options) {
    using Clock = std::chrono::steady_clock;
    std::vector<Subject> subjects = ReadSubjects(options);
    const auto length = std::chrono::duration<double>(options.seconds * static_cast<double>(subjects.size()));
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(length);
    do {
        for (Subject& subject : subjects)
            subject.times.push_back(TimeDecode(subject, options.engine));
    } while (Clock::now() < end);
    for (Subject& subject : subjects) {
        const auto middle = subject.times.begin() + static_cast<std::ptrdiff_t>(subject.times.size() / 2);
        std::nth_element(subject.times.begin(), middle, subject.times.end());
        std::printf("%s: %.1f us, %.1f megapixels/s, %.1f MB/s of stream, median of %zu\n",
                    subject.path.c_str(), *middle, subject.pixels / *middle,
                    static_cast<double>(subject.stream.size()) / *middle, subject.times.size());
    }
    return subjects.size() == options.inputs.size() ? kExitDone : kExitFailed;
}

} // namespace jpegtool
