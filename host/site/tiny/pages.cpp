#include "host/site/tiny/pages.h"

#include <algorithm>
#include <array>
#include <span>
#include <string>

#include "host/http/request.h"
#include "host/packer/frame_packer.h"

namespace host {
namespace {

// The texts of the pages in every language of the server. English is the first.
struct TinyTexts {
    std::string_view language; // its code
    std::string_view title;
    std::string_view nothing; // no camera to watch
    std::string_view back;    // to the list
    std::string_view every;   // "Refresh, seconds:"
    std::string_view size;
    std::string_view noPicture;
    std::string_view unknown; // there is no such camera
};

constexpr std::array<TinyTexts, 7> kTexts{{
    {"en", "Cameras", "There is nothing to watch.", "All cameras", "Refresh, seconds:", "Size:", "no picture",
     "There is no such camera."},
    {"es", "Cámaras", "No hay nada que ver.", "Todas las cámaras",
     "Actualizar, segundos:", "Tamaño:", "sin imagen", "No existe esta cámara."},
    {"fr", "Caméras", "Il n’y a rien à voir.", "Toutes les caméras",
     "Actualiser, secondes :", "Taille :", "pas d’image", "Cette caméra n’existe pas."},
    {"ru", "Камеры", "Смотреть нечего.", "Все камеры", "Обновление, секунд:", "Размер:", "нет изображения",
     "Такой камеры нет."},
    {"lv", "Kameras", "Nav ko skatīties.", "Visas kameras", "Atjaunot, sekundes:", "Izmērs:", "nav attēla",
     "Šādas kameras nav."},
    {"az", "Kameralar", "Baxmağa heç nə yoxdur.", "Bütün kameralar",
     "Yeniləmə, saniyə:", "Ölçü:", "şəkil yoxdur", "Belə kamera yoxdur."},
    {"ka", "კამერები", "საყურებელი არაფერია.", "ყველა კამერა", "განახლება, წამი:", "ზომა:", "სურათი არ არის",
     "ასეთი კამერა არ არსებობს."},
}};

constexpr auto kLanguages = [] {
    std::array<std::string_view, kTexts.size()> codes{};
    std::ranges::transform(kTexts, codes.begin(), &TinyTexts::language);
    return codes;
}();

// Chooses the texts: in the language that the browser asks for, else the server's, else English.
const TinyTexts& TextsFor(const Request& request, std::string_view language) noexcept {
    const auto code = PreferredLanguage(request.Field("Accept-Language"), kLanguages, language);
    const auto found = std::ranges::find(kTexts, code, &TinyTexts::language);
    return found != kTexts.end() ? *found : kTexts.front();
}

constexpr std::string_view kPicture = "/picture";
constexpr std::array kIntervals{1, 2, 5, 10, 60};
constexpr int kUsualInterval = 5;
constexpr std::array kWidths{96, 128, 176, 240, 320};
constexpr int kUsualWidth = 176;
constexpr int kQuality = 50;

// Gives the choice that the query names, else the usual one.
int Choice(std::string_view query, std::string_view name, std::span<const int> choices, int usual) {
    const std::string_view text = QueryParameter(query, name);
    const auto chosen = std::ranges::find(choices, text, [](int choice) { return std::to_string(choice); });
    return chosen != choices.end() ? *chosen : usual;
}

Answer Html(const TinyTexts& texts, unsigned status, std::string_view title, std::string_view head,
            std::string_view body) {
    Answer answer;
    answer.status = status;
    answer.type = "text/html; charset=utf-8";
    answer.headers["Cache-Control"] = "no-store";
    answer.headers["Content-Language"] = texts.language;
    answer.headers["Vary"] = "Accept-Language";
    answer.body.append("<!DOCTYPE html><html lang=\"").append(texts.language).append("\"><head>");
    answer.body.append("<meta charset=\"utf-8\"><meta name=\"viewport\" content=\"width=device-width\">");
    answer.body.append(head).append("<title>").append(title).append("</title></head><body>");
    answer.body.append(body).append("</body></html>\n");
    return answer;
}

Answer ListPage(const TinyTexts& texts, const TinyPages& pages) {
    std::string items;
    const auto add = [&](const std::string& key, bool live) {
        items += "<li><a href=\"/tiny/" + PercentEncode(key) + "\">" + EscapeHtml(key) + "</a>";
        if (!live)
            items.append(" (").append(texts.noPicture).append(")");
        items += "</li>";
    };
    for (const CameraFigures& camera : pages.feeds.Figures())
        add(camera.name, camera.age && *camera.age * 1000 < static_cast<double>(pages.staleAfter.count()));
    for (const std::string& key : pages.sources.OwnKeys()) {
        if (!pages.feeds.Find(key)) // a camera comes before a source of the same key
            add(key, true);
    }
    const std::string list =
        items.empty() ? "<p>" + std::string(texts.nothing) + "</p>" : "<ul>" + items + "</ul>";
    return Html(texts, 200, texts.title, "", "<h1>" + std::string(texts.title) + "</h1>" + list);
}

// One row of links, the present choice without one.
std::string Choices(std::string_view label, std::span<const int> choices, int chosen, const auto& addressOf) {
    std::string row = "<p>" + std::string(label);
    for (const int choice : choices) {
        const std::string text = std::to_string(choice);
        row += choice == chosen ? " <b>" + text + "</b>"
                                : " <a href=\"" + addressOf(choice) + "\">" + text + "</a>";
    }
    return row + "</p>";
}

Answer SourcePage(const TinyTexts& texts, const Request& request, const std::string& key) {
    const int every = Choice(request.query, "every", kIntervals, kUsualInterval);
    const int width = Choice(request.query, "width", kWidths, kUsualWidth);
    const std::string path = "/tiny/" + PercentEncode(key);
    const auto address = [&](int seconds, int columns) {
        return path + "?every=" + std::to_string(seconds) + "&amp;width=" + std::to_string(columns);
    };
    const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    const std::string columns = std::to_string(width);
    // Old browsers keep a picture under its address, whatever they are told; each one has an address of its
    // own.
    std::string body = "<p><img src=\"" + path + std::string(kPicture) + "?width=" + columns +
                       "&amp;t=" + std::to_string(now.count()) + "\" width=\"" + columns + "\" height=\"" +
                       std::to_string(width * 3 / 4) + "\" alt=\"" + std::string(texts.noPicture) + "\"></p>";
    body += "<h1>" + EscapeHtml(key) + "</h1>";
    body += Choices(texts.every, kIntervals, every, [&](int seconds) { return address(seconds, width); });
    body += Choices(texts.size, kWidths, width, [&](int chosen) { return address(every, chosen); });
    body += "<p><a href=\"/tiny\">" + std::string(texts.back) + "</a></p>";
    const std::string refresh = "<meta http-equiv=\"refresh\" content=\"" + std::to_string(every) + "\">";
    return Html(texts, 200, EscapeHtml(key), refresh, body);
}

Answer PictureAnswer(const Request& request, Source& source, const TinyPages& pages) {
    const PicturePtr picture = source.Now();
    PackerParameters wanted;
    wanted.width = Choice(request.query, "width", kWidths, kUsualWidth);
    wanted.height = wanted.width * 3 / 4;
    wanted.quality = kQuality;
    FramePacker packer(wanted, pages.packers);
    Answer answer;
    if (picture)
        answer.body = packer.Pack(PlanesOf(*picture)).jpeg;
    if (answer.body.empty())
        return Answer::Text(503, "There is no picture now.");
    answer.type = "image/jpeg";
    answer.headers["Cache-Control"] = "no-store";
    return answer;
}

} // namespace

Answer TinyPages::Page(const Request& request, std::string_view rest) const {
    const TinyTexts& texts = TextsFor(request, language);
    if (rest.empty())
        return ListPage(texts, *this);
    const bool picture = rest.ends_with(kPicture);
    if (picture)
        rest.remove_suffix(kPicture.size());
    const auto key = rest.find('/') == std::string_view::npos ? PercentDecode(rest) : std::nullopt;
    const SourcePtr source = key ? sources.Open(*key) : nullptr;
    if (!source) {
        const std::string back = " <a href=\"/tiny\">" + std::string(texts.back) + "</a>";
        return Html(texts, 404, texts.title, "", "<p>" + std::string(texts.unknown) + back + "</p>");
    }
    return picture ? PictureAnswer(request, *source, *this) : SourcePage(texts, request, *key);
}

} // namespace host
