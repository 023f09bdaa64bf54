// The module's own resources, as the component finds them.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>

#include "Common/Utils/ModuleImage.h"
#include "interfaces/IUploadServer.h"
#include "platform/resources.h"
#include "platform/text.h"

namespace {

using platform::FindResource;
using platform::LoadResourceString;

constexpr std::uint16_t kLanguages[] = {1033, 1034, 1036, 1049, 1062, 1068, 1079};

struct Text {
    std::uint16_t identifier;
    const char* english;
    const char* french;
    const char* russian;
    const char* azerbaijani;
};

constexpr Text kTexts[] = {
    {100, "Mobile", "Mobile", "Mobile", "Mobile"},
    {101, "Cameras", "Caméras", "Камеры", "Kameralar"},
    {102, "Host", "Host", "Хост", "Host"},
    {103, "Camera viewer", "Application pour la visualisation des caméras", "Приложение для просмотра камер",
     "Kameralara baxış üçün əlavə"},
    {104, "Type", "Type", "Тип", "Növ"},
    {105, "User", "Utilisateur", "Пользователь", "İstifadəçi"},
    {106, "Password", "Mot de passe", "Пароль", "Parol"},
    {107, "Name", "Nom", "Имя", "Ad"},
    {108, "Add camera", "Ajouter une caméra", "Добавить камеру", "Kameranı əlavə etməli"},
    {109, "Unable to use password without user name",
     "Le mot de passe ne peut pas être utilisé sans un nom d'utilisateur",
     "Пароль не может быть использован без имени пользователя",
     "Parol istifadəçinin adı olmadan istifadə edilə bilməz"},
    {110, "Mobile video transfer application",
     "Application pour la transmission de la vidéo depuis un téléphone portable",
     "Приложение для передачи видео с мобильного", "Mobil telefondan video ötürmə üçün əlavə"},
    {123, "Sensor control", "Contrôle des capteurs", "Управление датчиками", "?"},
    {124, "View video on a mobile phone", "Visualisation de la vidéo sur un téléphone",
     "Просмотр видео на телефоне", "?"},
    {125, "Transfer video from phone to server",
     "Transmission de la vidéo depuis un téléphone vers le serveur", "Передача видео с телефона на сервер",
     "?"},
    {126, "Midlet name", "Nom du midlet", "Имя мидлета", "?"},
    {127, "Download", "Télécharger", "Скачать", "?"},
};

TEST(ModuleStrings, AreThoseOfTheSevenLanguages) {
    const auto load = [](std::uint16_t identifier, std::uint16_t language) {
        return platform::ToUtf8(LoadResourceString(identifier, language).View());
    };
    for (const Text& text : kTexts) {
        EXPECT_EQ(load(text.identifier, 1033), text.english);
        EXPECT_EQ(load(text.identifier, 1036), text.french);
        EXPECT_EQ(load(text.identifier, 1049), text.russian);
        EXPECT_EQ(load(text.identifier, 1068), text.azerbaijani);
        for (const std::uint16_t language : std::initializer_list<std::uint16_t>{1034, 1062, 1079})
            EXPECT_EQ(load(text.identifier, language), text.identifier == 100 ? "Mobile" : "?") << language;
        // Without a wish, and with one that nobody can meet, it is the first language.
        EXPECT_EQ(load(text.identifier, 0), text.english);
        EXPECT_EQ(load(text.identifier, 1031), text.english);
    }
    for (const std::uint16_t missing : std::initializer_list<std::uint16_t>{0, 99, 111, 112, 122, 128, 65535})
        EXPECT_TRUE(LoadResourceString(missing).IsNull()) << missing;
}

TEST(ModuleResources, StandInTheDirectoryUnderTheirNumbers) {
    EXPECT_EQ(platform::ResourceInstances().front(), ThisModule());
    const std::string schema(FindResource(u"XML", 203).value().Text());
    EXPECT_EQ(schema.find("<?xml version=\"1.0\""), 0U);
    EXPECT_EQ(std::ranges::count(schema, '\n'), std::ranges::count(schema, '\r'));
    EXPECT_NE(
        schema.find("restriction=\"(SelectOne('text()').xml=='') || (SelectOne('../Name/text()').xml!='')\""),
        std::string::npos);

    // The class of the script is the one that hosts create.
    std::array<char, 40> id{};
    const GUID& c = kUploadServerClass;
    std::snprintf(id.data(), id.size(), "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", c.Data1,
                  c.Data2, c.Data3, c.Data4[0], c.Data4[1], c.Data4[2], c.Data4[3], c.Data4[4], c.Data4[5],
                  c.Data4[6], c.Data4[7]);
    const auto script = FindResource(u"REGISTRY", 102);
    EXPECT_NE(script.value().Text().find("ForceRemove '" + std::string(id.data()) + "'"),
              std::string_view::npos);
    EXPECT_TRUE(FindResource(u"REGISTRY", 101));
    EXPECT_TRUE(FindResource(u"XML", 207));

    EXPECT_TRUE(std::ranges::equal(platform::ResourceLanguages(u"ZIP", 211), kLanguages));
    EXPECT_TRUE(
        std::ranges::equal(platform::ResourceLanguages(platform::kResourceTypeString, 8), kLanguages));
    EXPECT_EQ(FindResource(u"ZIP", 211, 1049).value().codePage, 1251U);
    EXPECT_FALSE(FindResource(u"XML", 211));
    EXPECT_FALSE(FindResource(u"xml", 203));
    EXPECT_EQ(platform::LastError(), platform::kErrorResourceNotFound);
}

} // namespace
