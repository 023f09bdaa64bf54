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

    {Word::Trust, {"How a device comes to trust this server", "Cómo un dispositivo llega a confiar en este servidor",
        "Comment un appareil en vient à faire confiance à ce serveur", "Как устройство начинает доверять этому серверу",
        "Kā ierīce sāk uzticēties šim serverim", "Cihaz bu serverə necə etibar etməyə başlayır",
        "როგორ იწყებს მოწყობილობა ამ სერვერისთვის ნდობას"}},
    {Word::TrustWarning, {
        "This server made its certificate itself, so a browser warns: it cannot know whether this is the server that you mean. The connection is encrypted all the same. Once the device trusts the server’s authority, the warning is gone, and it comes back only when somebody else answers in the server’s place.",
        "Este servidor ha creado él mismo su certificado, y por eso el navegador avisa: no puede saber si es el servidor que usted quiere. La conexión va cifrada de todos modos. Cuando el dispositivo confía en la autoridad del servidor, el aviso desaparece, y solo vuelve si otro responde en su lugar.",
        "Ce serveur a fait lui-même son certificat, d’où l’avertissement du navigateur : il ne peut pas savoir si c’est bien le serveur voulu. La connexion est chiffrée malgré tout. Dès que l’appareil fait confiance à l’autorité du serveur, l’avertissement disparaît ; il ne revient que si un autre répond à sa place.",
        "Этот сервер сам выдал себе сертификат, поэтому браузер предупреждает: он не знает, тот ли это сервер. Соединение всё равно зашифровано. Когда устройство доверяет центру сертификации сервера, предупреждения больше нет; оно вернётся, только если вместо сервера ответит кто-то другой.",
        "Šis serveris savu sertifikātu ir izveidojis pats, tāpēc pārlūks brīdina: tas nevar zināt, vai tas ir īstais serveris. Savienojums tik un tā ir šifrēts. Kad ierīce uzticas servera sertifikācijas iestādei, brīdinājuma vairs nav; tas atgriežas tikai tad, ja servera vietā atbild kāds cits.",
        "Bu server öz sertifikatını özü yaradıb, ona görə brauzer xəbərdarlıq edir: bunun axtardığınız server olduğunu bilə bilmir. Bağlantı yenə də şifrələnir. Cihaz serverin sertifikat mərkəzinə etibar etdikdən sonra xəbərdarlıq yox olur və yalnız serverin yerinə başqası cavab verəndə qayıdır.",
        "ამ სერვერმა სერტიფიკატი თავად შექმნა, ამიტომ ბრაუზერი გაფრთხილებთ: მან არ იცის, ნამდვილად ის სერვერია თუ არა. კავშირი მაინც დაშიფრულია. როცა მოწყობილობა სერვერის სასერტიფიკაციო ცენტრს ენდობა, გაფრთხილება ქრება და მხოლოდ მაშინ ბრუნდება, თუ სერვერის ნაცვლად სხვა პასუხობს."}},
    {Word::TrustLimits, {
        "The authority vouches for the names and the private addresses of this server alone; it cannot stand for any other site.",
        "La autoridad responde solo de los nombres y las direcciones privadas de este servidor; no puede hacerse pasar por ningún otro sitio.",
        "L’autorité ne répond que des noms et des adresses privées de ce serveur ; elle ne peut se faire passer pour aucun autre site.",
        "Центр ручается только за имена и частные адреса этого сервера и не может выдать себя ни за какой другой сайт.",
        "Iestāde galvo tikai par šī servera nosaukumiem un privātajām adresēm; par citu vietni tā uzdoties nevar.",
        "Mərkəz yalnız bu serverin adlarına və şəxsi ünvanlarına zamin durur; özünü başqa sayt kimi göstərə bilməz.",
        "ცენტრი მხოლოდ ამ სერვერის სახელებსა და კერძო მისამართებს უდგას თავდებად; სხვა საიტად თავს ვერ გაასაღებს."}},
    {Word::TrustAgain, {
        "The authority is a new one: devices that trusted the earlier one have to trust again.",
        "La autoridad es nueva: los dispositivos que confiaban en la anterior tienen que volver a confiar.",
        "L’autorité est nouvelle : les appareils qui faisaient confiance à la précédente doivent le refaire.",
        "Центр новый: устройствам, доверявшим прежнему, нужно довериться заново.",
        "Iestāde ir jauna: ierīcēm, kas uzticējās iepriekšējai, jāuzticas no jauna.",
        "Mərkəz yenidir: əvvəlkinə etibar edən cihazlar yenidən etibar etməlidir.",
        "ცენტრი ახალია: მოწყობილობები, რომლებიც წინას ენდობოდნენ, ხელახლა უნდა ენდონ."}},
    {Word::TrustGoOn, {"Go on over the encrypted connection", "Seguir por la conexión cifrada",
        "Continuer par la connexion chiffrée", "Дальше по зашифрованному соединению", "Turpināt pa šifrētu savienojumu",
        "Şifrəli bağlantı ilə davam et", "გაგრძელება დაშიფრული კავშირით"}},
    {Word::TrustCompare, {
        "Before a device trusts it, compare the SHA-256 fingerprint that the device shows with the one at the server’s console, or on the settings page of a device that trusts it already. A fingerprint on this page would prove nothing: whoever could change the file could change the page as well.",
        "Antes de confiar, compare la huella SHA-256 que muestra el dispositivo con la de la consola del servidor, o con la de la página de ajustes de un dispositivo que ya confía. Una huella en esta página no probaría nada: quien pudiera cambiar el archivo podría cambiar también la página.",
        "Avant de faire confiance, comparez l’empreinte SHA-256 que montre l’appareil avec celle de la console du serveur, ou de la page des réglages d’un appareil qui fait déjà confiance. Une empreinte sur cette page ne prouverait rien : qui peut changer le fichier peut aussi changer la page.",
        "Прежде чем доверять, сравните отпечаток SHA-256, который показывает устройство, с отпечатком на консоли сервера или на странице настроек устройства, которое уже доверяет. Отпечаток на этой странице ничего бы не доказал: кто может подменить файл, подменит и страницу.",
        "Pirms uzticēties, salīdziniet SHA-256 nospiedumu, ko rāda ierīce, ar to, kas redzams servera konsolē vai iestatījumu lapā ierīcē, kas jau uzticas. Nospiedums šajā lapā neko nepierādītu: kas var nomainīt failu, var nomainīt arī lapu.",
        "Etibar etməzdən əvvəl cihazın göstərdiyi SHA-256 izini serverin konsolundakı və ya artıq etibar edən cihazın ayarlar səhifəsindəki iz ilə tutuşdurun. Bu səhifədəki iz heç nəyi sübut etməzdi: faylı dəyişə bilən səhifəni də dəyişə bilər.",
        "სანამ მოწყობილობა ენდობა, შეადარეთ მის მიერ ნაჩვენები SHA-256 ანაბეჭდი სერვერის კონსოლზე ან უკვე მენდობი მოწყობილობის პარამეტრების გვერდზე ნაჩვენებს. ამ გვერდზე ანაბეჭდი არაფერს დაამტკიცებდა: ვინც ფაილს შეცვლის, გვერდსაც შეცვლის."}},
    {Word::TrustCertificate, {"The authority’s certificate", "Certificado de la autoridad", "Certificat de l’autorité",
        "Сертификат центра", "Iestādes sertifikāts", "Mərkəzin sertifikatı", "ცენტრის სერტიფიკატი"}},
    {Word::TrustProfile, {"Profile for iPhone and iPad", "Perfil para iPhone y iPad", "Profil pour iPhone et iPad",
        "Профиль для iPhone и iPad", "Profils iPhone un iPad ierīcēm", "iPhone və iPad üçün profil",
        "პროფილი iPhone-ისა და iPad-ისთვის"}},
    {Word::TrustAndroid, {
        "Android: Settings, Security, Encryption and credentials, Install a certificate, CA certificate; choose the certificate.",
        "Android: Ajustes, Seguridad, Cifrado y credenciales, Instalar un certificado, Certificado de CA; elija el certificado.",
        "Android : Paramètres, Sécurité, Chiffrement et identifiants, Installer un certificat, Certificat CA ; choisissez le certificat.",
        "Android: Настройки, Безопасность, Шифрование и учётные данные, Установка сертификатов, Сертификат ЦС; выберите сертификат.",
        "Android: Iestatījumi, Drošība, Šifrēšana un akreditācijas dati, Instalēt sertifikātu, CA sertifikāts; izvēlieties sertifikātu.",
        "Android: Ayarlar, Təhlükəsizlik, Şifrələmə və etimadnamələr, Sertifikat quraşdırın, CA sertifikatı; sertifikatı seçin.",
        "Android: პარამეტრები, უსაფრთხოება, დაშიფვრა და მონაცემები, სერტიფიკატის დაყენება, CA სერტიფიკატი; აირჩიეთ სერტიფიკატი."}},
    {Word::TrustIphone, {
        "iPhone, iPad: open the profile, install it in Settings, then switch it on under General, About, Certificate Trust Settings.",
        "iPhone, iPad: abra el perfil, instálelo en Ajustes y actívelo en General, Información, Ajustes de confianza de los certificados.",
        "iPhone, iPad : ouvrez le profil, installez-le dans Réglages, puis activez-le dans Général, Informations, Réglages de confiance des certificats.",
        "iPhone, iPad: откройте профиль, установите его в Настройках и включите в разделе Основные, Об этом устройстве, Доверие сертификатам.",
        "iPhone, iPad: atveriet profilu, instalējiet to iestatījumos un ieslēdziet sadaļā General, About, Certificate Trust Settings.",
        "iPhone, iPad: profili açın, onu Ayarlarda quraşdırın, sonra General, About, Certificate Trust Settings bölməsində yandırın.",
        "iPhone, iPad: გახსენით პროფილი, დააყენეთ პარამეტრებში და ჩართეთ: General, About, Certificate Trust Settings."}},
    {Word::TrustWindows, {
        "Windows: open the certificate, Install Certificate, Local Machine, Trusted Root Certification Authorities.",
        "Windows: abra el certificado, Instalar certificado, Equipo local, Entidades de certificación raíz de confianza.",
        "Windows : ouvrez le certificat, Installer un certificat, Ordinateur local, Autorités de certification racines de confiance.",
        "Windows: откройте сертификат, Установить сертификат, Локальный компьютер, Доверенные корневые центры сертификации.",
        "Windows: atveriet sertifikātu, Instalēt sertifikātu, Lokālais dators, Uzticamās saknes sertificēšanas iestādes.",
        "Windows: sertifikatı açın, Install Certificate, Local Machine, Trusted Root Certification Authorities.",
        "Windows: გახსენით სერტიფიკატი, Install Certificate, Local Machine, Trusted Root Certification Authorities."}},
    {Word::TrustMac, {
        "macOS: open the certificate in Keychain Access, then set Trust to Always Trust.",
        "macOS: abra el certificado en Acceso a Llaveros y ponga Confiar en Confiar siempre.",
        "macOS : ouvrez le certificat dans Trousseaux d’accès, puis mettez Se fier sur Toujours approuver.",
        "macOS: откройте сертификат в Связке ключей и выберите Всегда доверять.",
        "macOS: atveriet sertifikātu lietotnē Keychain Access un iestatiet Trust uz Always Trust.",
        "macOS: sertifikatı Keychain Access-də açın və Trust üçün Always Trust seçin.",
        "macOS: გახსენით სერტიფიკატი Keychain Access-ში და აირჩიეთ Always Trust."}},
    {Word::TrustLinux, {
        "Linux with Chromium or Chrome: Settings, Privacy and security, Security, Manage certificates, Authorities, Import.",
        "Linux con Chromium o Chrome: Ajustes, Privacidad y seguridad, Seguridad, Gestionar certificados, Entidades, Importar.",
        "Linux avec Chromium ou Chrome : Paramètres, Confidentialité et sécurité, Sécurité, Gérer les certificats, Autorités, Importer.",
        "Linux с Chromium или Chrome: Настройки, Конфиденциальность и безопасность, Безопасность, Настроить сертификаты, Центры сертификации, Импорт.",
        "Linux ar Chromium vai Chrome: Iestatījumi, Konfidencialitāte un drošība, Drošība, Pārvaldīt sertifikātus, Iestādes, Importēt.",
        "Chromium və ya Chrome ilə Linux: Ayarlar, Məxfilik və təhlükəsizlik, Təhlükəsizlik, Sertifikatları idarə et, Mərkəzlər, İdxal.",
        "Linux Chromium-ით ან Chrome-ით: პარამეტრები, კონფიდენციალურობა და უსაფრთხოება, უსაფრთხოება, სერტიფიკატების მართვა, ცენტრები, იმპორტი."}},
    {Word::TrustFirefox, {
        "Firefox, on any system: Settings, Privacy and Security, View Certificates, Authorities, Import.",
        "Firefox, en cualquier sistema: Ajustes, Privacidad y seguridad, Ver certificados, Autoridades, Importar.",
        "Firefox, sur tout système : Paramètres, Vie privée et sécurité, Afficher les certificats, Autorités, Importer.",
        "Firefox в любой системе: Настройки, Приватность и защита, Просмотр сертификатов, Центры сертификации, Импортировать.",
        "Firefox jebkurā sistēmā: Iestatījumi, Privātums un drošība, Skatīt sertifikātus, Iestādes, Importēt.",
        "Firefox, istənilən sistemdə: Ayarlar, Məxfilik və təhlükəsizlik, Sertifikatlara bax, Mərkəzlər, İdxal et.",
        "Firefox, ნებისმიერ სისტემაში: პარამეტრები, კონფიდენციალურობა და უსაფრთხოება, სერტიფიკატების ნახვა, ცენტრები, იმპორტი."}},
    {Word::TrustOperator, {
        "This server has a certificate that its operator chose. A browser that warns may have the wrong server before it: ask the operator before you go on.",
        "Este servidor tiene un certificado elegido por su operador. Si el navegador avisa, puede que no sea el servidor correcto: pregunte al operador antes de seguir.",
        "Ce serveur a un certificat choisi par son exploitant. Si le navigateur avertit, ce n’est peut-être pas le bon serveur : demandez à l’exploitant avant de continuer.",
        "У этого сервера сертификат, выбранный его оператором. Если браузер предупреждает, перед ним, возможно, не тот сервер: спросите оператора, прежде чем продолжать.",
        "Šim serverim ir operatora izvēlēts sertifikāts. Ja pārlūks brīdina, tas var nebūt īstais serveris: pirms turpināt, vaicājiet operatoram.",
        "Bu serverin sertifikatını operatoru seçib. Brauzer xəbərdarlıq edirsə, qarşısındakı başqa server ola bilər: davam etməzdən əvvəl operatordan soruşun.",
        "ამ სერვერს მისი ოპერატორის შერჩეული სერტიფიკატი აქვს. თუ ბრაუზერი გაფრთხილებთ, შესაძლოა სხვა სერვერია: გაგრძელებამდე ჰკითხეთ ოპერატორს."}},

    {Word::ToSignIn, {"Sign in", "Iniciar sesión", "Se connecter", "Войти", "Pierakstīties", "Daxil ol", "შესვლა"}},
    {Word::ToSignOut, {"Sign out", "Cerrar sesión", "Se déconnecter", "Выйти", "Izrakstīties", "Çıxış", "გამოსვლა"}},
    {Word::UserName, {"Name", "Nombre", "Nom", "Имя", "Vārds", "Ad", "სახელი"}},
    {Word::Password, {"Password", "Contraseña", "Mot de passe", "Пароль", "Parole", "Parol", "პაროლი"}},
    {Word::WrongPassword, {"The name or the password is wrong.", "El nombre o la contraseña no son correctos.",
        "Le nom ou le mot de passe est faux.", "Имя или пароль неверны.", "Vārds vai parole nav pareiza.",
        "Ad və ya parol səhvdir.", "სახელი ან პაროლი არასწორია."}},
    {Word::ArchiveHolds, {"The archive holds the name and the password that it is asked for with.",
        "El archivo contiene el nombre y la contraseña con los que se pide.",
        "L’archive contient le nom et le mot de passe avec lesquels elle est demandée.",
        "Архив содержит имя и пароль, с которыми его запрашивают.", "Arhīvā ir vārds un parole, ar ko to pieprasa.",
        "Arxivdə onu istəyənin adı və parolu olur.", "არქივი შეიცავს სახელსა და პაროლს, რომლითაც მას ითხოვენ."}},
    {Word::ChangePassword, {"Change password", "Cambiar contraseña", "Changer le mot de passe", "Сменить пароль",
        "Mainīt paroli", "Parolu dəyiş", "პაროლის შეცვლა"}},
    {Word::PresentPassword, {"Present password", "Contraseña actual", "Mot de passe actuel", "Нынешний пароль",
        "Pašreizējā parole", "Hazırkı parol", "ახლანდელი პაროლი"}},
    {Word::NewPassword, {"New password", "Contraseña nueva", "Nouveau mot de passe", "Новый пароль", "Jaunā parole",
        "Yeni parol", "ახალი პაროლი"}},
    {Word::NewPasswordAgain, {"New password again", "Contraseña nueva otra vez", "Nouveau mot de passe encore une fois",
        "Новый пароль ещё раз", "Jaunā parole vēlreiz", "Yeni parol bir daha", "ახალი პაროლი კიდევ ერთხელ"}},
    {Word::PasswordsDiffer, {"The two new passwords differ.", "Las dos contraseñas nuevas no coinciden.",
        "Les deux nouveaux mots de passe diffèrent.", "Два новых пароля различаются.", "Abas jaunās paroles atšķiras.",
        "İki yeni parol fərqlidir.", "ორი ახალი პაროლი განსხვავდება."}},
    {Word::PasswordNotTaken, {"This password cannot be used: it is empty or too long, or has one of & and / in it.",
        "Esta contraseña no sirve: está vacía, es demasiado larga o contiene & o /.",
        "Ce mot de passe ne convient pas : il est vide, trop long ou contient & ou /.",
        "Такой пароль не годится: он пуст, слишком длинен или содержит & или /.",
        "Šī parole neder: tā ir tukša, pārāk gara vai satur & vai /.",
        "Bu parol yaramır: boşdur, çox uzundur və ya içində & yaxud / var.",
        "ეს პაროლი არ გამოდგება: ცარიელია, მეტისმეტად გრძელია ან შეიცავს & ან /."}},
    {Word::PasswordChanged, {"The password is changed", "La contraseña se ha cambiado", "Le mot de passe est changé",
        "Пароль изменён", "Parole ir nomainīta", "Parol dəyişdirildi", "პაროლი შეიცვალა"}},

    {Word::Users, {"Users", "Usuarios", "Utilisateurs", "Пользователи", "Lietotāji", "İstifadəçilər", "მომხმარებლები"}},
    {Word::Settings, {"Settings", "Ajustes", "Réglages", "Настройки", "Iestatījumi", "Ayarlar", "პარამეტრები"}},
    {Word::Kind, {"Kind", "Tipo", "Type", "Вид", "Veids", "Növ", "სახე"}},
    {Word::KindAdmin, {"Administrator: everything", "Administrador: todo", "Administrateur : tout", "Администратор: всё",
        "Administrators: viss", "İnzibatçı: hər şey", "ადმინისტრატორი: ყველაფერი"}},
    {Word::KindViewer, {"Viewer: looks at the pages", "Observador: ve las páginas", "Spectateur : regarde les pages",
        "Зритель: смотрит страницы", "Skatītājs: skatās lapas", "Tamaşaçı: səhifələrə baxır", "მაყურებელი: გვერდებს უყურებს"}},
    {Word::KindPhone, {"Phone: sends and receives pictures", "Teléfono: envía y recibe imágenes",
        "Téléphone : envoie et reçoit des images", "Телефон: отправляет и получает изображения",
        "Tālrunis: sūta un saņem attēlus", "Telefon: şəkil göndərir və alır", "ტელეფონი: სურათებს გზავნის და იღებს"}},
    {Word::SeesAll, {"All; for a phone, as the settings say", "Todas; para un teléfono, según los ajustes",
        "Toutes ; pour un téléphone, selon les réglages", "Все; для телефона — как в настройках",
        "Visas; tālrunim — kā iestatījumos", "Hamısı; telefon üçün ayarlarda deyildiyi kimi",
        "ყველა; ტელეფონისთვის — როგორც პარამეტრებშია"}},
    {Word::SeesList, {"Only these:", "Solo estas:", "Seulement celles-ci :", "Только эти:", "Tikai šīs:", "Yalnız bunlar:",
        "მხოლოდ ესენი:"}},
    {Word::NewCameraInNoList, {"A new camera is in nobody’s list.", "Una cámara nueva no está en la lista de nadie.",
        "Une nouvelle caméra n’est dans la liste de personne.", "Новой камеры нет ни в чьём списке.",
        "Jaunas kameras nav neviena sarakstā.", "Yeni kamera heç kimin siyahısında olmur.",
        "ახალი კამერა არავის სიაში არ არის."}},
    {Word::PasswordStays, {"Left empty, it stays as it is.", "Si se deja vacía, no cambia.", "Laissé vide, il reste inchangé.",
        "Если оставить пустым, пароль не изменится.", "Atstājot tukšu, tā nemainās.", "Boş qalsa, dəyişmir.",
        "თუ ცარიელია, უცვლელი რჩება."}},
    {Word::AddUser, {"Add a user", "Añadir un usuario", "Ajouter un utilisateur", "Добавить пользователя",
        "Pievienot lietotāju", "İstifadəçi əlavə et", "მომხმარებლის დამატება"}},
    {Word::Save, {"Save", "Guardar", "Enregistrer", "Сохранить", "Saglabāt", "Yadda saxla", "შენახვა"}},
    {Word::Remove, {"Remove", "Quitar", "Supprimer", "Удалить", "Noņemt", "Sil", "წაშლა"}},
    {Word::RemoveUser, {"Remove {}, with sessions and tokens", "Quitar a {}, con sus sesiones y fichas",
        "Supprimer {}, avec ses sessions et jetons", "Удалить {} вместе с сеансами и токенами",
        "Noņemt {} kopā ar sesijām un pilnvarām", "{} istifadəçisini seansları və tokenləri ilə sil",
        "{} წაიშალოს სესიებითა და ტოკენებით"}},
    {Word::LoginTaken, {"There is a user of this name already.", "Ya hay un usuario con este nombre.",
        "Il y a déjà un utilisateur de ce nom.", "Пользователь с таким именем уже есть.", "Lietotājs ar šādu vārdu jau ir.",
        "Bu adda istifadəçi artıq var.", "ასეთი სახელის მომხმარებელი უკვე არსებობს."}},
    {Word::LoginNotTaken, {"This name cannot be used: it is empty or too long, or has one of / ? # : % & in it.",
        "Este nombre no sirve: está vacío, es demasiado largo o contiene / ? # : % o &.",
        "Ce nom ne convient pas : il est vide, trop long ou contient / ? # : % ou &.",
        "Такое имя не годится: оно пустое, слишком длинное или содержит / ? # : % или &.",
        "Šis vārds neder: tas ir tukšs, pārāk garš vai satur / ? # : % vai &.",
        "Bu ad yaramır: boşdur, çox uzundur və ya içində / ? # : % yaxud & var.",
        "ეს სახელი არ გამოდგება: ცარიელია, მეტისმეტად გრძელია ან შეიცავს / ? # : % ან &."}},
    {Word::LastAdmin, {"This is the last administrator.", "Es el último administrador.", "C’est le dernier administrateur.",
        "Это последний администратор.", "Šis ir pēdējais administrators.", "Bu, sonuncu inzibatçıdır.",
        "ეს უკანასკნელი ადმინისტრატორია."}},
    {Word::ChangedMeanwhile, {"Somebody has changed the users meanwhile; this is how they are now.",
        "Alguien ha cambiado los usuarios entretanto; así están ahora.",
        "Quelqu’un a modifié les utilisateurs entre-temps ; voici leur état actuel.",
        "Тем временем кто-то изменил пользователей; теперь они такие.",
        "Pa to laiku kāds ir mainījis lietotājus; tagad tie ir šādi.",
        "Bu arada kimsə istifadəçiləri dəyişib; indi onlar belədir.",
        "ამასობაში ვიღაცამ მომხმარებლები შეცვალა; ახლა ასეა."}},

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
