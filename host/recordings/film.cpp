// Parts of recordings as one film.

#include <algorithm>
#include <cmath>

#include "host/recordings/source.h"

namespace host {
namespace {

// A time lapse has no more pictures a second than that, and shows a pause of the recording for no longer.
constexpr double kLapseDistance = 40; // milliseconds
constexpr UnixMs kLongestLapsePause = 2000;

// Tells now and then how far it has come.
class FilmProgress {
public:
    FilmProgress(const Film& film, UnixMs begin) : m_film(film), m_told(begin) {}
    // False when the film is to end.
    bool Reach(UnixMs time) {
        if (!m_film.progress || std::abs(time - m_told) < 1000)
            return true;
        m_told = time;
        return m_film.progress(time);
    }

private:
    const Film& m_film;
    UnixMs m_told;
};

// All pictures that follow the first one. False when it was ended.
bool WriteAsItWas(RecordedRange& range, const RecordedPicture& picture, FilmProgress progress,
                  MatroskaWriter& writer) {
    std::int64_t time = 0; // in the film
    UnixMs before = picture.time;
    while (const auto next = range.Next()) {
        // Where the clock was set back, time goes on all the same.
        time += std::max<UnixMs>(next->time - before, 1);
        before = next->time;
        writer.Add(time, next->jpeg);
        if (!progress.Reach(before))
            return false;
    }
    return true;
}

// Reads what it shows: of a day a few hundred pictures.
bool WriteLapse(RecordedRange& range, RecordedPicture picture, double speed, FilmProgress progress,
                MatroskaWriter& writer) {
    std::int64_t written = 0; // the newest picture's time in the film
    double passed = 0;        // of what was recorded, up to `picture`, without the pauses
    for (;;) {
        const double due = (static_cast<double>(written) + kLapseDistance) * speed;
        auto next = range.NextFrom(picture.time + static_cast<UnixMs>(std::ceil(due - passed)));
        if (!next)
            return true;
        if (next->file == picture.file)
            passed += static_cast<double>(next->time - picture.time);
        else
            passed += static_cast<double>(
                range.EndBefore() - picture.time +
                std::clamp<UnixMs>(next->time - range.EndBefore(), 1, kLongestLapsePause));
        picture = std::move(*next);
        if (passed >= due) {
            written = std::max(written + 1, static_cast<std::int64_t>(std::llround(passed / speed)));
            writer.Add(written, picture.jpeg);
        }
        if (!progress.Reach(picture.time))
            return false;
    }
}

} // namespace

bool WriteFilm(RecordedRange range, const Film& film, ByteSink& sink) {
    auto first = range.Next();
    if (!first)
        return false;
    const FilmProgress progress(film, first->time);
    MatroskaWriter writer(sink, {film.title, first->time, first->width, first->height});
    writer.Add(0, first->jpeg);
    const bool whole = film.speed > 1 ? WriteLapse(range, std::move(*first), film.speed, progress, writer)
                                      : WriteAsItWas(range, *first, progress, writer);
    if (whole)
        writer.Finish();
    return whole;
}

} // namespace host
