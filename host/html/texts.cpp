#include "host/html/texts.h"

#include <algorithm>

#include "host/http/request.h"

namespace host {
namespace {

constexpr std::array<std::string_view, kLanguages> kCodes{"en", "es", "fr", "ru", "lv", "az", "ka"};

struct Row {
    Word word;
    std::array<std::string_view, kLanguages> texts; // in the order of the codes
};

// clang-format off
constexpr Row kRows[] = {
    {Word::AllCameras, {"All cameras", "Todas las cámaras", "Toutes les caméras", "Все камеры", "Visas kameras",
        "Bütün kameralar", "ყველა კამერა"}},
    {Word::TryAgain, {"Try again", "Volver a intentarlo", "Réessayer", "Попробовать ещё раз", "Mēģināt vēlreiz",
        "Yenidən cəhd et", "ხელახლა ცდა"}},
    {Word::NeedsScript, {"This page needs JavaScript.", "Esta página necesita JavaScript.",
        "Cette page a besoin de JavaScript.", "Этой странице нужен JavaScript.", "Šai lapai vajag JavaScript.",
        "Bu səhifəyə JavaScript lazımdır.", "ამ გვერდს JavaScript სჭირდება."}},
    {Word::SmallPages, {"Small pages without it", "Páginas pequeñas sin él", "Petites pages qui s’en passent",
        "Маленькие страницы без него", "Mazās lapas bez tā", "Onsuz kiçik səhifələr", "პატარა გვერდები მის გარეშე"}},

    {Word::Cameras, {"Cameras", "Cámaras", "Caméras", "Камеры", "Kameras", "Kameralar", "კამერები"}},
    {Word::NothingToWatch, {"There is nothing to watch.", "No hay nada que ver.", "Il n’y a rien à voir.",
        "Смотреть нечего.", "Nav ko skatīties.", "Baxmağa heç nə yoxdur.", "საყურებელი არაფერია."}},
    {Word::RefreshSeconds, {"Refresh, seconds:", "Actualizar, segundos:", "Actualiser, secondes :",
        "Обновление, секунд:", "Atjaunot, sekundes:", "Yeniləmə, saniyə:", "განახლება, წამი:"}},
    {Word::Size, {"Size:", "Tamaño:", "Taille :", "Размер:", "Izmērs:", "Ölçü:", "ზომა:"}},
    {Word::NoPicture, {"no picture", "sin imagen", "pas d’image", "нет изображения", "nav attēla", "şəkil yoxdur",
        "სურათი არ არის"}},
    {Word::NoSuchCamera, {"There is no such camera.", "No existe esta cámara.", "Cette caméra n’existe pas.",
        "Такой камеры нет.", "Šādas kameras nav.", "Belə kamera yoxdur.", "ასეთი კამერა არ არსებობს."}},

    {Word::PhoneBecomes, {"This phone becomes the camera {}.", "Este teléfono pasa a ser la cámara {}.",
        "Ce téléphone devient la caméra {}.", "Этот телефон станет камерой {}.", "Šis tālrunis kļūs par kameru {}.",
        "Bu telefon {} kamerasına çevrilir.", "ეს ტელეფონი იქცევა კამერად {}."}},
    {Word::Install, {"Install", "Instalar", "Installer", "Установить", "Instalēt", "Quraşdır", "დაყენება"}},
    {Word::Descriptor, {"Descriptor, for phones that ask for one first",
        "Descriptor, para los teléfonos que lo piden primero", "Descripteur, pour les téléphones qui le demandent d’abord",
        "Дескриптор, для телефонов, которым он нужен сначала", "Deskriptors tālruņiem, kas vispirms prasa to",
        "Deskriptor, əvvəlcə onu istəyən telefonlar üçün", "დესკრიპტორი, ტელეფონებისთვის, რომლებიც ჯერ მას ითხოვენ"}},
    {Word::GoodOnce, {"The link is good once, for {} min more. Nobody else should have it.",
        "El enlace sirve una vez, durante {} min más. Nadie más debe tenerlo.",
        "Le lien sert une fois, encore {} min. Personne d’autre ne doit l’avoir.",
        "Ссылка действует один раз, ещё {} мин. Её не должно быть ни у кого другого.",
        "Saite der vienreiz, vēl {} min. Nevienam citam tās nedrīkst būt.",
        "Keçid bir dəfə, daha {} dəq. etibarlıdır. O, başqa heç kimdə olmamalıdır.",
        "ბმული ერთხელ გამოდგება, კიდევ {} წთ. ის სხვას არავის უნდა ჰქონდეს."}},

    {Word::ForPhones, {"For phones", "Para teléfonos", "Pour les téléphones", "Для телефонов", "Tālruņiem",
        "Telefonlar üçün", "ტელეფონებისთვის"}},
    {Word::ViewOnPhone, {"View video on a mobile phone", "Ver vídeo en un teléfono móvil",
        "Voir la vidéo sur un téléphone mobile", "Просмотр видео на мобильном телефоне",
        "Skatīties video mobilajā tālrunī", "Mobil telefonda videoya baxmaq", "ვიდეოს ნახვა მობილურ ტელეფონზე"}},
    {Word::SendFromPhone, {"Transfer video from phone to server", "Enviar vídeo del teléfono al servidor",
        "Envoyer la vidéo du téléphone au serveur", "Передача видео с телефона на сервер",
        "Sūtīt video no tālruņa uz serveri", "Videonu telefondan serverə göndərmək",
        "ვიდეოს გადაცემა ტელეფონიდან სერვერზე"}},
    {Word::MidletName, {"Midlet name", "Nombre del midlet", "Nom du midlet", "Имя мидлета", "Midleta nosaukums",
        "Midletin adı", "მიდლეტის სახელი"}},
    {Word::Download, {"Download", "Descargar", "Télécharger", "Загрузить", "Lejupielādēt", "Yüklə", "ჩამოტვირთვა"}},

    {Word::SignIn, {"A sign-in is needed", "Hay que iniciar sesión", "Connexion nécessaire", "Нужно войти",
        "Jāpierakstās", "Daxil olmaq lazımdır", "საჭიროა შესვლა"}},
    {Word::NotForYou, {"This is not open to you", "Esto no está a su alcance", "Ceci ne vous est pas ouvert",
        "Это вам недоступно", "Šis jums nav pieejams", "Bu sizə açıq deyil", "ეს თქვენთვის მიუწვდომელია"}},
    {Word::NothingHere, {"There is nothing here", "Aquí no hay nada", "Il n’y a rien ici", "Здесь ничего нет",
        "Šeit nekā nav", "Burada heç nə yoxdur", "აქ არაფერია"}},
    {Word::NotThisWay, {"That does not work this way", "Así no funciona", "Cela ne marche pas ainsi",
        "Так это не работает", "Tā tas nedarbojas", "Bu belə işləmir", "ეს ასე არ მუშაობს"}},
    {Word::UsedUp, {"This link is good no more", "Este enlace ya no sirve", "Ce lien ne sert plus",
        "Эта ссылка больше не действует", "Šī saite vairs neder", "Bu keçid artıq etibarlı deyil",
        "ეს ბმული აღარ გამოდგება"}},
    {Word::TooManyTries, {"Too many tries; wait a moment", "Demasiados intentos; espere un momento",
        "Trop d’essais ; attendez un instant", "Слишком много попыток, подождите немного",
        "Pārāk daudz mēģinājumu; uzgaidiet", "Həddən çox cəhd; bir az gözləyin", "ძალიან ბევრი ცდა; ცოტა მოიცადეთ"}},
    {Word::NotNow, {"Not now; try again soon", "Ahora no; inténtelo pronto", "Pas maintenant ; réessayez bientôt",
        "Не сейчас, попробуйте чуть позже", "Ne tagad; drīz mēģiniet vēlreiz", "İndi yox; bir azdan cəhd edin",
        "ახლა არა; მალე სცადეთ"}},
    {Word::NotUnderstood, {"The server does not understand this", "El servidor no entiende esto",
        "Le serveur ne comprend pas ceci", "Сервер этого не понимает", "Serveris to nesaprot", "Server bunu başa düşmür",
        "სერვერს ეს არ ესმის"}},
    {Word::Failed, {"The server could not do this", "El servidor no pudo hacerlo", "Le serveur n’a pas pu le faire",
        "Серверу это не удалось", "Serverim tas neizdevās", "Server bunu edə bilmədi", "სერვერმა ეს ვერ შეძლო"}},
};
// clang-format on

// The rows stand in the order of the words, and none lacks a language.
constexpr bool IsComplete() {
    std::size_t at = 0;
    for (const Row& row : kRows) {
        if (static_cast<std::size_t>(row.word) != at++)
            return false;
        for (const std::string_view text : row.texts) {
            if (text.empty())
                return false;
        }
    }
    return at == static_cast<std::size_t>(Word::Failed) + 1;
}
static_assert(IsComplete());

} // namespace

const std::array<std::string_view, kLanguages>& TextLanguages() noexcept {
    return kCodes;
}

std::string_view LanguageOf(std::string_view acceptLanguage, std::string_view usual) noexcept {
    const bool known = std::ranges::find(kCodes, usual) != kCodes.end();
    return PreferredLanguage(acceptLanguage, kCodes, known ? usual : kCodes.front());
}

std::string_view TextOf(std::string_view language, Word word) noexcept {
    const auto at = std::ranges::find(kCodes, language);
    const auto column = at == kCodes.end() ? 0 : static_cast<std::size_t>(at - kCodes.begin());
    return kRows[static_cast<std::size_t>(word)].texts[column];
}

std::string TextOf(std::string_view language, Word word, std::string_view value) {
    std::string text(TextOf(language, word));
    if (const auto at = text.find("{}"); at != std::string::npos)
        text.replace(at, 2, value);
    return text;
}

} // namespace host
