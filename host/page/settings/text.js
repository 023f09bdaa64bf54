// The page's own words, in the languages of the server. What the document says of itself (labels, the words of a
// restriction) comes from the document.

const LANGUAGES = ["en", "es", "fr", "ru", "lv", "az", "ka"];

// A line for each language, in the order above.
const WORDS = {
    settings: ["Settings", "Ajustes", "Réglages", "Настройки", "Iestatījumi", "Ayarlar", "პარამეტრები"],
    livePage: ["Live page", "Página en vivo", "Page en direct", "Прямая трансляция", "Tiešraide", "Canlı səhifə", "პირდაპირი ეთერი"],
    general: ["General", "General", "Général", "Общие", "Vispārīgi", "Ümumi", "ზოგადი"],
    language: ["Language", "Idioma", "Langue", "Язык", "Valoda", "Dil", "ენა"],
    languageHint: [
        "Takes effect when the server is started the next time.",
        "Se aplica la próxima vez que se inicie el servidor.",
        "Prend effet au prochain démarrage du serveur.",
        "Вступает в силу при следующем запуске сервера.",
        "Stājas spēkā nākamajā servera palaišanas reizē.",
        "Server növbəti dəfə işə salınanda qüvvəyə minir.",
        "ძალაში შედის სერვერის შემდეგი გაშვებისას.",
    ],
    hostHint: [
        "Address and port under which phones reach this server, such as 192.168.1.20:8080. Leave it empty for the server’s own.",
        "Dirección y puerto con los que los teléfonos llegan a este servidor, por ejemplo 192.168.1.20:8080. Vacío: la del propio servidor.",
        "Adresse et port par lesquels les téléphones joignent ce serveur, par exemple 192.168.1.20:8080. Vide : celle du serveur lui-même.",
        "Адрес и порт, по которым телефоны находят этот сервер, например 192.168.1.20:8080. Пусто — собственный адрес сервера.",
        "Adrese un ports, ar ko tālruņi sasniedz šo serveri, piemēram, 192.168.1.20:8080. Tukšs lauks: paša servera adrese.",
        "Telefonların bu serverə çatdığı ünvan və port, məsələn, 192.168.1.20:8080. Boş qalsa, serverin öz ünvanı.",
        "მისამართი და პორტი, რომლითაც ტელეფონები ამ სერვერს უკავშირდება, მაგალითად 192.168.1.20:8080. ცარიელი ველი ნიშნავს სერვერის საკუთარ მისამართს.",
    ],
    camsHint: [
        "A phone signs in with the name and the password of a camera and becomes that camera. A camera without a password takes no phone.",
        "Un teléfono inicia sesión con el nombre y la contraseña de una cámara y pasa a ser esa cámara. Una cámara sin contraseña no admite teléfonos.",
        "Un téléphone se connecte avec le nom et le mot de passe d’une caméra et devient cette caméra. Une caméra sans mot de passe n’accepte aucun téléphone.",
        "Телефон входит с именем и паролем камеры и становится этой камерой. К камере без пароля телефон не подключится.",
        "Tālrunis pierakstās ar kameras nosaukumu un paroli un kļūst par šo kameru. Kamera bez paroles tālruni nepieņem.",
        "Telefon kameranın adı və parolu ilə daxil olur və həmin kameraya çevrilir. Parolsuz kamera telefon qəbul etmir.",
        "ტელეფონი შედის კამერის სახელითა და პაროლით და ამ კამერად იქცევა. უპაროლო კამერას ტელეფონი ვერ უკავშირდება.",
    ],
    save: ["Save", "Guardar", "Enregistrer", "Сохранить", "Saglabāt", "Yadda saxla", "შენახვა"],
    discard: ["Discard", "Descartar", "Abandonner", "Отменить", "Atmest", "Ləğv et", "გაუქმება"],
    show: ["Show", "Mostrar", "Afficher", "Показать", "Rādīt", "Göstər", "ჩვენება"],
    hide: ["Hide", "Ocultar", "Masquer", "Скрыть", "Slēpt", "Gizlət", "დამალვა"],
    remove: ["Remove", "Quitar", "Supprimer", "Удалить", "Noņemt", "Sil", "წაშლა"],
    undo: ["Undo", "Deshacer", "Rétablir", "Вернуть", "Atsaukt", "Geri qaytar", "დაბრუნება"],
    unnamed: ["No name yet", "Aún sin nombre", "Pas encore de nom", "Пока без имени", "Vēl bez nosaukuma", "Hələ adsız", "ჯერ უსახელო"],
    added: ["New", "Nueva", "Nouveau", "Новая", "Jauna", "Yeni", "ახალი"],
    changed: ["Changed", "Cambiada", "Modifié", "Изменена", "Mainīta", "Dəyişdirilib", "შეცვლილია"],
    removed: ["Will be removed", "Se quitará", "Sera supprimé", "Будет удалена", "Tiks noņemta", "Silinəcək", "წაიშლება"],
    search: ["Search", "Buscar", "Rechercher", "Поиск", "Meklēt", "Axtar", "ძიება"],
    nothingYet: ["Nothing here yet.", "Todavía no hay nada.", "Rien pour l’instant.", "Пока ничего нет.", "Pagaidām nekā nav.", "Hələ heç nə yoxdur.", "ჯერ არაფერია."],
    mustNotBeEmpty: [
        "This must not be empty.", "No puede quedar vacío.", "Ce champ ne peut pas rester vide.",
        "Это поле не может быть пустым.", "Šo lauku nedrīkst atstāt tukšu.", "Bu xana boş qala bilməz.",
        "ეს ველი არ უნდა იყოს ცარიელი.",
    ],
    notAllowed: [
        "This value is not allowed here.", "Este valor no se admite aquí.", "Cette valeur n’est pas admise ici.",
        "Такое значение здесь недопустимо.", "Šāda vērtība šeit nav atļauta.", "Bu qiymətə burada icazə verilmir.",
        "ეს მნიშვნელობა აქ დაუშვებელია.",
    ],
    notAChoice: [
        "Choose one of the values on offer.", "Elija uno de los valores disponibles.",
        "Choisissez l’une des valeurs proposées.", "Выберите одно из предложенных значений.",
        "Izvēlieties vienu no piedāvātajām vērtībām.", "Təklif olunan qiymətlərdən birini seçin.",
        "აირჩიეთ შემოთავაზებული მნიშვნელობებიდან ერთ-ერთი.",
    ],
    mustBeUnique: [
        "Another entry has this already.", "Otra entrada ya lo tiene.", "Une autre entrée l’utilise déjà.",
        "Это уже занято другой записью.", "To jau izmanto cits ieraksts.", "Bu artıq başqa qeyddə var.",
        "ეს უკვე გამოყენებულია სხვა ჩანაწერში.",
    ],
    // Of names that are sign-ins as well, and of passwords: the host's own rules.
    loginCharacters: [
        "A phone signs in with this name: it cannot have control characters, nor any of / ? # : % &",
        "Un teléfono inicia sesión con este nombre: no puede tener caracteres de control ni / ? # : % &",
        "Un téléphone se connecte sous ce nom : pas de caractères de contrôle ni de / ? # : % &",
        "Телефон входит под этим именем: в нём не может быть управляющих знаков и / ? # : % &",
        "Tālrunis pierakstās ar šo nosaukumu: tajā nedrīkst būt vadības rakstzīmes un / ? # : % &",
        "Telefon bu adla daxil olur: onda idarəetmə simvolları və / ? # : % & ola bilməz",
        "ტელეფონი ამ სახელით შედის: მასში არ უნდა იყოს მართვის სიმბოლოები და / ? # : % &",
    ],
    loginTooLong: [
        "A phone signs in with this name: it can have 64 bytes (letters beyond A to Z count twice or more).",
        "Un teléfono inicia sesión con este nombre: caben 64 bytes (las letras que no son de la A a la Z cuentan por dos o más).",
        "Un téléphone se connecte sous ce nom : 64 octets au plus (les lettres autres que A à Z comptent double ou plus).",
        "Телефон входит под этим именем: в нём может быть до 64 байт (буквы не из A–Z занимают два и больше).",
        "Tālrunis pierakstās ar šo nosaukumu: tajā var būt 64 baiti (burti ārpus A–Z aizņem divus vai vairāk).",
        "Telefon bu adla daxil olur: ən çoxu 64 bayt ola bilər (A–Z xaricindəki hərflər iki və daha çox bayt tutur).",
        "ტელეფონი ამ სახელით შედის: დასაშვებია 64 ბაიტი (A–Z-ის გარდა ასოები ორ ან მეტ ბაიტს იკავებს).",
    ],
    loginTaken: [
        "A user of the server who is no phone has this name.", "Un usuario del servidor que no es un teléfono tiene este nombre.",
        "Un utilisateur du serveur qui n’est pas un téléphone porte ce nom.",
        "Это имя уже у пользователя сервера, который не телефон.",
        "Šāds vārds jau ir servera lietotājam, kas nav tālrunis.",
        "Bu ad telefon olmayan server istifadəçisinə məxsusdur.",
        "ეს სახელი უკვე აქვს სერვერის მომხმარებელს, რომელიც ტელეფონი არ არის.",
    ],
    passwordTooLong: [
        "A phone can send 63 bytes at most (letters beyond A to Z count twice or more).",
        "Un teléfono puede enviar 63 bytes como máximo (las letras que no son de la A a la Z cuentan por dos o más).",
        "Un téléphone envoie 63 octets au plus (les lettres autres que A à Z comptent double ou plus).",
        "Телефон может передать не больше 63 байт (буквы не из A–Z занимают два и больше).",
        "Tālrunis var nosūtīt ne vairāk kā 63 baitus (burti ārpus A–Z aizņem divus vai vairāk).",
        "Telefon ən çoxu 63 bayt göndərə bilər (A–Z xaricindəki hərflər iki və daha çox bayt tutur).",
        "ტელეფონს შეუძლია გაგზავნოს არაუმეტეს 63 ბაიტი (A–Z-ის გარდა ასოები ორ ან მეტ ბაიტს იკავებს).",
    ],
    passwordCharacters: [
        "A phone cannot send this password: it cannot have control characters, nor & or /",
        "Un teléfono no puede enviar esta contraseña: no puede tener caracteres de control ni & o /",
        "Un téléphone ne peut pas envoyer ce mot de passe : pas de caractères de contrôle ni de & ou /",
        "Телефон не может передать такой пароль: в нём не может быть управляющих знаков и & или /",
        "Tālrunis nevar nosūtīt šādu paroli: tajā nedrīkst būt vadības rakstzīmes un & vai /",
        "Telefon belə parolu göndərə bilmir: onda idarəetmə simvolları və & yaxud / ola bilməz",
        "ტელეფონს ასეთი პაროლის გაგზავნა არ შეუძლია: მასში არ უნდა იყოს მართვის სიმბოლოები და & ან /",
    ],
    // In front of one of the words above, of a value that was there before the rule.
    keptAsItIs: [
        "Kept as it is.", "Se conserva tal cual.", "Conservé tel quel.", "Оставлено как есть.",
        "Atstāts, kā ir.", "Olduğu kimi saxlanılır.", "დატოვებულია უცვლელად.",
    ],
    loading: ["Reading the settings", "Leyendo los ajustes", "Lecture des réglages", "Чтение настроек", "Iestatījumu nolasīšana", "Ayarlar oxunur", "პარამეტრების წაკითხვა"],
    cannotLoad: [
        "The settings cannot be shown", "No se pueden mostrar los ajustes", "Impossible d’afficher les réglages",
        "Настройки не удаётся показать", "Iestatījumus nevar parādīt", "Ayarları göstərmək mümkün deyil",
        "პარამეტრების ჩვენება ვერ ხერხდება",
    ],
    saving: ["Saving", "Guardando", "Enregistrement", "Сохранение", "Saglabā", "Yadda saxlanılır", "ინახება"],
    unsaved: ["Not saved yet", "Sin guardar", "Pas encore enregistré", "Ещё не сохранено", "Vēl nav saglabāts", "Hələ yadda saxlanılmayıb", "ჯერ არ არის შენახული"],
    allSaved: ["No changes", "Sin cambios", "Aucune modification", "Изменений нет", "Nav izmaiņu", "Dəyişiklik yoxdur", "ცვლილებები არ არის"],
    saved: ["Saved", "Guardado", "Enregistré", "Сохранено", "Saglabāts", "Yadda saxlanıldı", "შენახულია"],
    savedNextStart: [
        "Saved. The language changes at the next start.", "Guardado. El idioma cambia en el próximo inicio.",
        "Enregistré. La langue change au prochain démarrage.", "Сохранено. Язык сменится при следующем запуске.",
        "Saglabāts. Valoda mainīsies nākamajā palaišanas reizē.",
        "Yadda saxlanıldı. Dil növbəti işə salınmada dəyişəcək.", "შენახულია. ენა შემდეგი გაშვებისას შეიცვლება.",
    ],
    discarded: ["Changes discarded", "Cambios descartados", "Modifications abandonnées", "Изменения отменены", "Izmaiņas atmestas", "Dəyişikliklər ləğv edildi", "ცვლილებები გაუქმდა"],
    faults: ["To be corrected: {}", "Por corregir: {}", "À corriger : {}", "Нужно исправить: {}", "Jālabo: {}", "Düzəldilməlidir: {}", "გასასწორებელია: {}"],
    conflict: [
        "The settings were changed elsewhere in the meantime. Here they are, with your changes on top; look them over and save again.",
        "Entretanto, los ajustes se cambiaron en otro lugar. Aquí están, con sus cambios encima; revíselos y guarde de nuevo.",
        "Entre-temps, les réglages ont été modifiés ailleurs. Les voici, avec vos modifications ; vérifiez et enregistrez de nouveau.",
        "Тем временем настройки изменили в другом месте. Здесь они показаны вместе с вашими изменениями; проверьте и сохраните снова.",
        "Pa to laiku iestatījumi mainīti citur. Šeit tie ir kopā ar jūsu izmaiņām; pārbaudiet un saglabājiet vēlreiz.",
        "Bu arada ayarlar başqa yerdə dəyişdirilib. Burada onlar sizin dəyişikliklərinizlə birlikdədir; yoxlayın və yenidən saxlayın.",
        "ამასობაში პარამეტრები სხვაგან შეიცვალა. აქ ისინი თქვენს ცვლილებებთან ერთად არის; გადახედეთ და ხელახლა შეინახეთ.",
    ],
    goneMeanwhile: [
        "Removed there, so that your changes to it are lost:", "Se quitó allí y sus cambios se pierden:",
        "Supprimé là-bas, vos modifications sont perdues :", "Удалено там, ваши изменения потеряны:",
        "Tur noņemts, jūsu izmaiņas zudušas:", "Orada silinib, dəyişiklikləriniz itib:",
        "იქ წაიშალა, თქვენი ცვლილებები დაიკარგა:",
    ],
    keptDifferently: [
        "The server has taken the settings, but not all as they were written here. This is what it holds now.",
        "El servidor aceptó los ajustes, pero no todo tal como estaba escrito aquí. Esto es lo que tiene ahora.",
        "Le serveur a pris les réglages, mais pas tous tels qu’ils étaient écrits ici. Voici ce qu’il contient.",
        "Сервер принял настройки, но не все в том виде, как они были записаны здесь. Вот что у него теперь.",
        "Serveris pieņēma iestatījumus, bet ne visus tā, kā tie bija rakstīti šeit. Tagad tie ir šādi.",
        "Server ayarları qəbul etdi, amma hamısını burada yazıldığı kimi yox. İndi onda bunlar var.",
        "სერვერმა პარამეტრები მიიღო, მაგრამ ყველა ისე არა, როგორც აქ ეწერა. ახლა ასეთია.",
    ],
    notOnDisk: [
        "The change is in force, but could not be written to disk. The server tries again until there is room; if it ends before, the change is lost.",
        "El cambio está en vigor, pero no se pudo escribir en disco. El servidor lo reintenta hasta que haya espacio; si termina antes, el cambio se pierde.",
        "La modification est en vigueur, mais n’a pas pu être écrite sur le disque. Le serveur réessaie jusqu’à ce qu’il y ait de la place ; s’il s’arrête avant, elle est perdue.",
        "Изменение действует, но его не удалось записать на диск. Сервер повторяет попытки, пока не появится место; если он завершится раньше, изменение пропадёт.",
        "Izmaiņas ir spēkā, bet tās neizdevās ierakstīt diskā. Serveris mēģina vēlreiz, līdz būs vieta; ja tas beidzas agrāk, izmaiņas zūd.",
        "Dəyişiklik qüvvədədir, amma diskə yazıla bilmədi. Server yer olana qədər yenidən cəhd edir; ondan əvvəl bağlansa, dəyişiklik itir.",
        "ცვლილება ძალაშია, მაგრამ დისკზე ვერ ჩაიწერა. სერვერი ცდას იმეორებს, სანამ ადგილი არ გამოჩნდება; თუ მანამდე დასრულდა, ცვლილება დაიკარგება.",
    ],
    notYetOnDisk: [
        "In force, not on disk yet", "En vigor, aún no en disco", "En vigueur, pas encore sur le disque", "Действует, ещё не на диске",
        "Spēkā, vēl nav diskā", "Qüvvədədir, hələ diskdə deyil", "ძალაშია, დისკზე ჯერ არ არის",
    ],
    notSaved: ["Not saved.", "No se guardó.", "Non enregistré.", "Не сохранено.", "Nav saglabāts.", "Yadda saxlanılmadı.", "არ შეინახა."],
    noAnswer: [
        "The server does not answer. Your changes are still here; try again in a moment.",
        "El servidor no responde. Sus cambios siguen aquí; inténtelo de nuevo en un momento.",
        "Le serveur ne répond pas. Vos modifications sont toujours là ; réessayez dans un instant.",
        "Сервер не отвечает. Ваши изменения на месте; попробуйте ещё раз чуть позже.",
        "Serveris neatbild. Jūsu izmaiņas joprojām ir šeit; pēc brīža mēģiniet vēlreiz.",
        "Server cavab vermir. Dəyişiklikləriniz buradadır; bir azdan yenidən cəhd edin.",
        "სერვერი არ პასუხობს. თქვენი ცვლილებები ადგილზეა; ცოტა ხანში სცადეთ ხელახლა.",
    ],
    signInAgain: [
        "The server asks for a sign-in as an administrator. Reload the page; what is not saved is lost then.",
        "El servidor pide iniciar sesión como administrador. Recargue la página; lo no guardado se pierde.",
        "Le serveur demande une connexion d’administrateur. Rechargez la page ; ce qui n’est pas enregistré sera perdu.",
        "Сервер просит войти как администратор. Обновите страницу; несохранённое при этом пропадёт.",
        "Serveris prasa pierakstīties kā administratoram. Pārlādējiet lapu; nesaglabātais zudīs.",
        "Server administrator kimi daxil olmağı xahiş edir. Səhifəni yeniləyin; saxlanılmayanlar itəcək.",
        "სერვერი ითხოვს ადმინისტრატორად შესვლას. განაახლეთ გვერდი; შეუნახავი დაიკარგება.",
    ],
    notAllowedHere: [
        "Only an administrator may do that.", "Solo un administrador puede hacerlo.",
        "Seul un administrateur peut le faire.", "Это может только администратор.",
        "To drīkst tikai administrators.", "Bunu yalnız administrator edə bilər.",
        "ეს მხოლოდ ადმინისტრატორს შეუძლია.",
    ],
    tooLarge: [
        "Not saved: the settings are larger than the server takes.", "No se guardó: los ajustes son demasiado grandes.",
        "Non enregistré : les réglages sont trop volumineux.", "Не сохранено: настройки больше, чем принимает сервер.",
        "Nav saglabāts: iestatījumi ir pārāk lieli.", "Saxlanılmadı: ayarlar həddindən artıq böyükdür.",
        "არ შეინახა: პარამეტრები ზედმეტად დიდია.",
    ],
    notReady: [
        "The server is not ready for this. Try again in a moment.", "El servidor aún no está listo. Inténtelo de nuevo en un momento.",
        "Le serveur n’est pas prêt. Réessayez dans un instant.", "Сервер ещё не готов. Попробуйте чуть позже.",
        "Serveris vēl nav gatavs. Pēc brīža mēģiniet vēlreiz.", "Server hələ hazır deyil. Bir azdan yenidən cəhd edin.",
        "სერვერი ჯერ მზად არ არის. ცოტა ხანში სცადეთ ხელახლა.",
    ],
};

// What an element of the document is for, where its label does not say it.
const HINTS = { host: "hostHint", cams: "camsHint" };

let column = 0;

// English for a language that the page does not know.
export function setLanguage(code) {
    column = Math.max(0, LANGUAGES.indexOf(code));
    document.documentElement.lang = LANGUAGES[column];
}

export const isKnown = (key) => Object.hasOwn(WORDS, key);

export function text(key, value = "") {
    return WORDS[key][column].replace("{}", String(value));
}

// Of a value that is kept although the host would not take it today. `key` says why.
export function keptWords(key) {
    return isKnown(key) ? `${text("keptAsItIs")} ${text(key)}` : text("keptAsItIs");
}

export function hintOf(element) {
    const key = HINTS[element.nodeName];
    return key === undefined ? "" : text(key);
}

export function translatePage() {
    for (const element of document.querySelectorAll("[data-text]")) {
        element.textContent = text(element.dataset.text);
    }
    document.title = `${text("settings")} – Morrowstream`;
}
