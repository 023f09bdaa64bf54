#include "runtime/archive/Archive.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <set>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/text.h"
#include "support/Zip.h"
#include "support/temp_folder.h"

namespace {

namespace fs = std::filesystem;
using namespace support;

ArchivePtr Open(const std::string& bytes, const char* password = nullptr) {
    return ArchivePtr(
        OpenArchive(bytes.data(), static_cast<std::uint32_t>(bytes.size()), kSourceMemory, password));
}

enum class Outcome { Read, ItemsRefused, WrongPassword, NotOpened };

struct Packer {
    const char* program;
    std::string arguments;          // a shell's words that make ../x of the folder
    const char* password = nullptr; // to read with
    Outcome outcome = Outcome::Read;
};

constexpr char kPassword[] = "open sesame";

std::vector<Packer> Packers() {
    const std::string p = " -P '" + std::string(kPassword) + "' ";
    const std::string p7 = "a -bd -bso0 -tzip '-p" + std::string(kPassword) + "' ";
    const std::string pack =
        "-c 'import sys,zipfile as z; a=z.ZipFile(\"../x\",\"w\"); "
        "[a.write(n,compress_type=eval(sys.argv[1])) for n in sys.argv[2:]]; a.close()' ";
    const std::string done = " && mv ../x.zip ../x";
    return {
        {"zip", "-q -r ../x.zip ." + done},
        {"zip", "-q -r -0 -X ../x.zip ." + done},
        {"zip", "-q -r -fd ../x.zip ." + done},
        {"zip", "-q -r - . | cat > ../x"},
        {"zip", "-q -r -z ../x.zip . < short" + done},
        {"zip", "-q -r ../y.zip . && cat noise ../y.zip > ../x"},
        {"zip", "-q -r ../y.zip . && cat noise ../y.zip > ../x.zip && zip -q -A ../x.zip" + done},
        {"zip", "-q -r" + p + "../x.zip ." + done, kPassword},
        {"zip", "-q -r -0" + p + "../x.zip ." + done, kPassword},
        {"zip", "-q -r" + p + "../x.zip ." + done, "wrong", Outcome::WrongPassword},
        {"zip", "-q -r" + p + "../x.zip ." + done, nullptr, Outcome::WrongPassword},
        {"zip", "-q -r -Z bzip2 ../x.zip ." + done, nullptr, Outcome::ItemsRefused},
        {"zip", "-q -r -fz ../x.zip ." + done, nullptr, Outcome::NotOpened},
        {"python3", "-m zipfile -c ../x ."},
        {"python3", pack + "z.ZIP_STORED short noise sub/*"},
        {"python3", pack + "z.ZIP_LZMA short noise sub/*", nullptr, Outcome::ItemsRefused},
        {"7z", "a -bd -bso0 -tzip -mx=0 -mcu=on ../x.zip ." + done},
        {"7z", p7 + "../x.zip ." + done, kPassword},
        {"7z", p7 + "-mem=AES256 ../x.zip ." + done, kPassword, Outcome::ItemsRefused},
        {"7z", "a -bd -bso0 -tzip -mm=Deflate64 ../x.zip sub/text" + done, nullptr, Outcome::ItemsRefused},
        {"jar", "cf ../x.zip ." + done},
        {"jar", "c0fM ../x.zip ." + done},
    };
}

// The contents of all items, each read in pieces of that size; counts those that are refused, and those for
// which the password is wrong.
std::set<std::string> Contents(CArchiveReader* reader, std::uint32_t piece, int& refused, int& locked) {
    std::set<std::string> contents;
    SArchiveEntry count, entry;
    EXPECT_EQ(kArchiveOk, GetArchiveItem(reader, -1, &count));
    std::string buffer(piece, '\0');
    for (std::int32_t index = 0; index < count.nIndex; ++index) {
        const ArchiveStatus got = GetArchiveItem(reader, index, &entry);
        EXPECT_TRUE(got == kArchiveOk || got == kArchiveMismatch);
        std::string data;
        ArchiveStatus read;
        while ((read = ReadArchiveItem(reader, index, buffer.data(), piece)) == kArchiveMore)
            data += buffer.substr(0, entry.nUncompressedSize - data.size());
        refused += got == kArchiveOk ? 0 : 1;
        locked += read == kArchivePassword ? 1 : 0;
        EXPECT_TRUE(got == kArchiveOk || read == kArchiveInflate);
        contents.insert(data);
    }
    return contents;
}

// A folder of files, packed by other people's programs, and read from memory, by name and by handle.
TEST(Archive, ReadsWhatOtherProgramsPack) {
    const TempFolder folder;
    const fs::path tree = folder.Path() / "tree";
    fs::create_directories(tree / "sub/empty");
    std::mt19937 random(7);
    std::string noise(40000, '\0'), text;
    std::ranges::generate(noise, [&] { return static_cast<char>(random()); });
    for (int n = 0; text.size() < 200000; ++n)
        text += "line " + std::to_string(n * 7919) + "\r\n";
    const std::pair<const char*, std::string> files[] = {{"short", "hello, world\n"},
                                                         {"noise", noise},
                                                         {"sub/text", text},
                                                         {"sub/\u043A\u0430\u043C", "cyrillic"}};
    for (const auto& [name, data] : files)
        std::ofstream(tree / name, std::ios::binary) << data;
    for (const Packer& packer : Packers()) {
        const std::string program = packer.program;
        SCOPED_TRACE(program + " " + packer.arguments + (packer.password ? packer.password : ""));
        if (std::system(("command -v " + program + " > /dev/null").c_str()) != 0) {
            ASSERT_TRUE(program != "zip" && program != "python3") << "is missing";
            std::printf("not here: %s\n", packer.program);
            continue;
        }
        ASSERT_EQ(0, std::system(("cd " + tree.string() + " && rm -f ../x ../*.zip && LC_ALL=C.UTF-8 " +
                                  program + " " + packer.arguments)
                                     .c_str()));
        const std::string bytes = platform::ReadWholeFile(folder.File("x")).value();
        const int descriptor =
            ::open(folder.Write("framed", std::string(777, 'P') + bytes).c_str(), O_RDONLY | O_CLOEXEC);
        const platform::File file(descriptor);
        ASSERT_EQ(777, ::lseek(descriptor, 777, SEEK_SET));
        const std::u16string name = platform::FromUtf8(folder.File("x"));
        const std::tuple<const void*, std::uint32_t, std::uint32_t> sources[] = {
            {&file, kSourceFileHandle, 1000},
            {name.c_str(), kSourceFileName, 16384},
            {bytes.data(), kSourceMemory, 1 << 20}};
        for (const auto& [data, kind, piece] : sources) {
            const ArchivePtr archive(
                OpenArchive(data, static_cast<std::uint32_t>(bytes.size()), kind, packer.password));
            ASSERT_EQ(packer.outcome == Outcome::NotOpened ? kArchiveNotOpened : kArchiveOk,
                      LastArchiveStatus());
            if (!archive)
                continue;
            int refused = 0, locked = 0;
            const auto contents = Contents(archive->pReader, piece, refused, locked);
            EXPECT_EQ(packer.outcome == Outcome::ItemsRefused, refused > 0);
            EXPECT_EQ(packer.outcome == Outcome::WrongPassword, locked > 0);
            // Of wrong passwords, one in 256 passes the test of one byte and comes out as nonsense.
            for (const auto& [path, content] : files)
                EXPECT_TRUE(refused > 0 || contents.contains(content) == (packer.outcome == Outcome::Read))
                    << path;
        }
    }
}

TEST(Archive, FindsByNameAndPosition) {
    const std::string bytes = Zip({{"gui.rus.ini", "r"},
                                   {"GUI.ENG.INI", "english"},
                                   {"gui.eng.ini", "later"},
                                   {std::string(255, 'a'), ""},
                                   {std::string(256, 'a'), ""}});
    const auto archive = Open(bytes);
    ASSERT_TRUE(archive);
    CArchiveReader* const reader = archive->pReader;
    SArchiveEntry entry;
    const std::tuple<std::u16string, bool, std::int32_t> rows[] = {{u"gui.eng.ini", true, 1},
                                                                   {u"gui.eng.ini", false, 2},
                                                                   {u"Gui.Eng.Ini", false, -1},
                                                                   {u"gui.eng.in", true, -1},
                                                                   {u"", true, -1},
                                                                   {u"GUI.RUS.INI", true, 0},
                                                                   {std::u16string(255, u'a'), true, 3},
                                                                   {std::u16string(256, u'a'), true, -1}};
    for (const auto& [name, ignoreCase, expected] : rows) {
        std::int32_t index = 77;
        EXPECT_EQ(expected < 0 ? kArchiveNotFound : kArchiveOk,
                  FindArchiveItem(reader, name.c_str(), ignoreCase, &index, &entry));
        EXPECT_EQ(expected, index);
        EXPECT_EQ(expected, entry.nIndex);
    }
    // A find that fails disturbs neither the walk nor the item that is being read; one that succeeds ends it.
    const auto read = [&](std::int32_t index, std::uint32_t size) {
        std::string piece(size, '\0');
        const ArchiveStatus status = ReadArchiveItem(reader, index, piece.data(), size);
        return status == kArchiveMore ? piece : status == kArchiveOk ? "end" : "refused";
    };
    EXPECT_EQ("en", read(1, 2));
    EXPECT_EQ(kArchiveNotFound, FindArchiveItem(reader, u"none", true, nullptr, nullptr));
    EXPECT_EQ("gl", read(1, 2));
    EXPECT_EQ(kArchiveOk, FindArchiveItem(reader, u"gui.rus.ini", true, nullptr, nullptr));
    EXPECT_EQ("en", read(1, 2));
    EXPECT_EQ(kArchiveOk, GetArchiveItem(reader, 0, &entry));
    EXPECT_EQ("english", read(1, 7));
    EXPECT_EQ("end", read(1, 7));
    for (const std::int32_t index : {5, -2, 0x7FFFFFFF}) {
        EXPECT_EQ(kArchiveArguments, GetArchiveItem(reader, index, &entry));
        EXPECT_EQ("refused", read(index, 2));
    }
    EXPECT_EQ("refused", read(-1, 2));
    EXPECT_EQ(kArchiveArguments, GetArchiveItem(nullptr, 0, &entry));
    EXPECT_EQ(kArchiveOk, GetArchiveItem(reader, -1, &entry));
    EXPECT_EQ(5, entry.nIndex);
    EXPECT_EQ(u'\0', entry.szName[0]);

    CArchiveHandle foreign{2, reader};
    EXPECT_EQ(kArchiveNoHandle, CloseArchive(&foreign));
    EXPECT_EQ(kArchiveArguments, CloseArchive(nullptr));
    EXPECT_EQ(kArchiveArguments, LastArchiveStatus());
}

TEST(Archive, TellsAttributesAndTimes) {
    constexpr std::uint32_t kDate = (2024 - 1980) << 9 | 2 << 5 | 29,
                            kSummer = (2024 - 1980) << 9 | 7 << 5 | 1;
    constexpr std::uint32_t kTime = 13 << 11 | 37 << 5 | 21; // 13:37:42
    const auto fileTime = [](std::int64_t seconds) { return (seconds + 11644473600) * 10000000; };
    ASSERT_EQ(0, ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1));
    const std::int64_t dos = fileTime(1709210262), summer = fileTime(1719833862); // 12:37:42Z, 11:37:42Z
    const auto stamp = [](int flags, const std::string& times) {
        return "Ut" + Le16(4) + "skip" + "UT" + Le16(static_cast<std::uint32_t>(times.size()) + 1) +
               static_cast<char>(flags) + times;
    };
    const std::string late = Le32(0x7FFFFFFF);
    const std::string early = Le32(0xFFFFFFFF); // signed: a second before 1970
    struct Row {
        const char* name;
        std::uint32_t madeBy, attributes, date;
        std::string extra;
        std::uint32_t shown;
        std::int64_t modified, accessed, created;
    };
    const Row rows[] = {
        {"a DOS file", 0x0014, 0xFFFFFF37, kDate, "", 0x37, dos, dos, dos},
        {"a label of NTFS", 0x0B14, 0x08, kDate, "", 0, dos, dos, dos},
        {"a Unix file", 0x0314, 0100644U << 16 | 7, kDate, "", 32, dos, dos, dos},
        {"a Unix folder, read-only", 0x0314, 040555U << 16, kDate, "", 32 | 16 | 1, dos, dos, dos},
        {"in summer", 0, 0, kSummer, "", 0, summer, summer, summer},
        {"no date", 0x0314, 0200U << 16, 0, "", 32, 0, 0, 0},
        {"all times", 0, 0, kDate, stamp(7, late + early + Le32(0)), 0, fileTime(0x7FFFFFFF), fileTime(-1),
         fileTime(0)},
        {"the access time alone", 0, 0, kDate, stamp(2, late), 0, dos, fileTime(0x7FFFFFFF), dos},
        {"more flags than times", 0, 0, kDate, stamp(7, early), 0, fileTime(-1), dos, dos},
        {"a record longer than the field", 0, 0, kDate, "UT" + Le16(50) + "\1" + late, 0, dos, dos, dos},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string bytes =
            Zip({{"n", "data", true, row.extra, row.madeBy, row.attributes, kTime, row.date}});
        const auto archive = Open(bytes);
        ASSERT_TRUE(archive);
        SArchiveEntry entry;
        ASSERT_EQ(kArchiveOk, GetArchiveItem(archive->pReader, 0, &entry));
        EXPECT_EQ(row.shown, entry.nAttributes);
        EXPECT_EQ(row.modified, entry.nModificationTime);
        EXPECT_EQ(row.accessed, entry.nAccessTime);
        EXPECT_EQ(row.created, entry.nCreationTime);
        EXPECT_EQ(4U, entry.nUncompressedSize);
        EXPECT_EQ(6U, entry.nCompressedSize);
    }
}

// What becomes of an archive with a damage: of opening it, of its first item, and of reading that.
struct Fate {
    ArchiveStatus open, get, read;
};
constexpr Fate kSound{0, 0, kArchiveMore}, kNoArchive{kArchiveNotOpened, 0, 0},
    kDisagrees{0, kArchiveMismatch, kArchiveInflate}, kNoExtra{0, kArchiveExtraField, kArchiveInflate},
    kNoStream{0, 0, kArchiveInflate};

// The second item stays readable wherever the archive opens.
TEST(Archive, RefusesDamageWithItsStatus) {
    const std::string text(5000, 'x');
    const std::string sound = Zip({{"first", text}, {"second", "good", false}});
    const std::size_t central = sound.find("PK\1\2"), end = sound.find("PK\5\6");
    using Damage = std::function<void(std::string&)>;
    const auto at = [](std::size_t place, std::string value) -> Damage {
        return [=](std::string& bytes) { bytes.replace(place, value.size(), value); };
    };
    // The same value in both headers of the first item.
    const auto both = [&](std::size_t local, const std::string& value) -> Damage {
        return [=](std::string& bytes) {
            bytes.replace(local, value.size(), value);
            bytes.replace(central + local + 2, value.size(), value);
        };
    };
    const auto put = [](std::size_t place, std::string value) -> Damage {
        return [=](std::string& bytes) { bytes.insert(std::min(place, bytes.size()), value); };
    };
    const std::size_t behind = ~std::size_t{0};
    struct Row {
        const char* name;
        Damage damage;
        Fate fate;
    };
    const Row rows[] = {
        {"nothing", put(0, ""), kSound},
        {"empty", [](std::string& b) { b.clear(); }, kNoArchive},
        {"end record at the very beginning", [](std::string& b) { b = EndRecord(0, 0, 0); }, kNoArchive},
        {"cut within the end record", [&](std::string& b) { b.resize(end + 21); }, kNoArchive},
        {"another disk", at(end + 4, Le16(1)), kNoArchive},
        {"the directory's disk", at(end + 6, Le16(1)), kNoArchive},
        {"counts differ", at(end + 8, Le16(1)), kNoArchive},
        {"directory behind its end", [](std::string& b) { b = 'x' + EndRecord(0, 0, 500); }, kNoArchive},
        {"no directory header", at(central, "PX"), kNoArchive},
        // It belongs to the directory's bytes here, so that it alone is in the way.
        {"ZIP64 locator",
         [&](std::string& b) {
             b.replace(end + 12, 4, Le32(static_cast<std::uint32_t>(end - central) + 20));
             b.insert(end, "PK\6\7" + std::string(16, '\0'));
         },
         kNoArchive},
        {"comment of 60000", put(behind, std::string(60000, 'c')), kSound},
        {"signature across two steps of the search",
         [](std::string& b) { b = std::string(1024, 'f') + b + std::string(1024 - 22 + 6, 'c'); }, kSound},
        {"70000 bytes behind", put(behind, std::string(70000, 'c')), kNoArchive},
        {"1000 bytes in front", put(0, std::string(1000, 'f')), kSound},
        {"no local header", at(0, "PX"), kDisagrees},
        {"another method", at(8, Le16(0)), kDisagrees},
        {"unknown method", both(8, Le16(12)), kDisagrees},
        {"CRC differs", at(14, Le32(7)), kDisagrees},
        {"size differs", at(18, Le32(7)), kDisagrees},
        {"unpacked size differs", at(22, Le32(7)), kDisagrees},
        {"size differs, with a descriptor",
         [](std::string& b) { b.replace(6, 2, Le16(8)).replace(14, 12, 12, '\0'); }, kSound},
        {"name length differs", at(26, Le16(4)), kDisagrees},
        {"extra field past the end", at(28, Le16(0xFFFF)), kNoExtra},
        {"sizes of ZIP64", both(22, Le32(0xFFFFFFFF)), kDisagrees},
        {"stream damaged", at(35, "\xFF\xFF"), kNoStream},
        {"compressed size past the end", both(18, Le32(0x7FFFFFFF)), kNoStream},
        {"stream cut", both(18, Le32(4)), kNoStream},
        {"stream ends early", both(22, Le32(6000)), kSound},
        {"CRC wrong in both", both(14, Le32(7)), kSound},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::string bytes = sound;
        row.damage(bytes);
        bytes.shrink_to_fit();
        const auto archive = Open(bytes);
        ASSERT_EQ(row.fate.open, LastArchiveStatus());
        if (!archive)
            continue;
        SArchiveEntry entry;
        EXPECT_EQ(row.fate.get, GetArchiveItem(archive->pReader, 0, &entry));
        EXPECT_EQ(kArchiveOk, FindArchiveItem(archive->pReader, u"first", false, nullptr, &entry));
        EXPECT_EQ(0, entry.nIndex);
        EXPECT_EQ(row.fate.get == kArchiveOk, entry.szName[0] == u'f');
        std::string buffer(6000, '\0');
        EXPECT_EQ(row.fate.read, ReadArchiveItem(archive->pReader, 0, buffer.data(), 6000));
        EXPECT_TRUE(row.fate.read != kArchiveMore || buffer.starts_with(text));
        EXPECT_EQ(kArchiveMore, ReadArchiveItem(archive->pReader, 1, buffer.data(), 6000));
        EXPECT_TRUE(buffer.starts_with("good"));
    }
    int ends[2];
    ASSERT_EQ(0, ::pipe(ends));
    const platform::File readEnd(ends[0]), writeEnd(ends[1]);
    const std::tuple<const void*, std::uint32_t, ArchiveStatus> sources[] = {
        {sound.data(), 4, kArchiveArguments},
        {u"no/such/file", kSourceFileName, kArchiveNotOpened},
        {&readEnd, kSourceFileHandle, kArchiveSeek}};
    for (const auto& [data, kind, status] : sources) {
        EXPECT_FALSE(ArchivePtr(OpenArchive(data, 100, kind, nullptr)));
        EXPECT_EQ(status, LastArchiveStatus());
    }
}

// A hundred items over one and the same mebibyte of zeros, of which they own to 950: each read stays within
// that and within what was asked for. The last header is behind the end of the directory.
TEST(Archive, StaysWithinABombsBounds) {
    std::string bytes = Zip({{"bomb", std::string(std::size_t{1} << 20, '\0')}}).replace(22, 4, Le32(950));
    const std::size_t central = bytes.find("PK\1\2"), end = bytes.find("PK\5\6");
    const std::string header = bytes.substr(central, end - central).replace(24, 4, Le32(950));
    bytes.resize(central);
    constexpr std::int32_t kItems = 100;
    for (std::int32_t n = 1; n < kItems; ++n)
        bytes += header;
    bytes.replace(bytes.size() - header.size() + 32, 2, Le16(22)); // a comment as long as the end record
    bytes += EndRecord(kItems, (kItems - 1) * header.size(), central, header);
    const auto archive = Open(bytes);
    ASSERT_TRUE(archive);
    for (std::int32_t n = 0; n < kItems; ++n) {
        std::string buffer(1000, 'x');
        const std::uint32_t size = n % 2 == 0 ? 900 : 1000, given = std::min(size, 950U);
        EXPECT_EQ(n < kItems - 1 ? kArchiveMore : kArchiveInflate,
                  ReadArchiveItem(archive->pReader, n, buffer.data(), size));
        EXPECT_EQ(n < kItems - 1 ? std::string(given, '\0') + std::string(1000 - given, 'x')
                                 : std::string(1000, 'x'),
                  buffer);
    }
}

} // namespace
