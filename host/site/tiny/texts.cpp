#include "host/site/tiny/texts.h"

#include <algorithm>

namespace host {
namespace {

constexpr std::array<TinyTexts, kTinyLanguages> kTexts{{
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

} // namespace

const std::array<std::string_view, kTinyLanguages>& TinyLanguageCodes() noexcept {
    static constexpr auto codes = [] {
        std::array<std::string_view, kTinyLanguages> list{};
        std::ranges::transform(kTexts, list.begin(), &TinyTexts::language);
        return list;
    }();
    return codes;
}

const TinyTexts& TinyTextsOf(std::string_view language) noexcept {
    const auto found = std::ranges::find(kTexts, language, &TinyTexts::language);
    return found != kTexts.end() ? *found : kTexts.front();
}

} // namespace host
