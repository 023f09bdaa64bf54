#include "runtime/archive/Archive.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>

#include "platform/file.h"
#include "platform/files.h"
#include "platform/text.h"
#include "support/Zip.h"
#include "support/temp_folder.h"

namespace {

namespace fs = std::filesystem;
using support::Zip;

ArchivePtr Open(const std::string& bytes, const char* password = nullptr) {
    return ArchivePtr(
        OpenArchive(bytes.data(), static_cast<std::uint32_t>(bytes.size()), kSourceMemory, password));
}

// All of an item, read in pieces; the status is that of the read that ended it.
std::string ReadAll(CArchiveHandle& handle, std::int32_t index, const SArchiveEntry& entry, std::size_t piece,
                    ArchiveStatus& status) {
    std::string data;
    std::string buffer(piece, '\0');
    const std::size_t size = entry.nUncompressedSize;
    do {
        status = ReadArchiveItem(handle.pReader, index, buffer.data(), static_cast<std::uint32_t>(piece));
        if (status == kArchiveMore)
            data += buffer.substr(0, size - data.size());
    } while (status == kArchiveMore);
    return data;
}

enum class Outcome { Read, ItemsRefused, WrongPassword, NotOpened };

struct Packer {
    const char* program;
    std::string arguments; // a shell's words that make ../x of the folder
    const char* password = nullptr;
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
        {"zip", "-q -r -9 -D -o ../x.zip ." + done},
        {"zip", "-q -r -k -j ../x.zip ." + done},
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
        {"7z", "a -bd -bso0 -tzip -mx=9 ../x.zip ." + done},
        {"7z", "a -bd -bso0 -tzip -mx=0 -mcu=on ../x.zip ." + done},
        {"7z", p7 + "../x.zip ." + done, kPassword},
        {"7z", p7 + "-mem=AES256 ../x.zip ." + done, kPassword, Outcome::ItemsRefused},
        {"7z", "a -bd -bso0 -tzip -mm=Deflate64 ../x.zip sub/text" + done, nullptr, Outcome::ItemsRefused},
        {"jar", "cf ../x.zip ." + done},
        {"jar", "c0fM ../x.zip ." + done},
    };
}

void ExpectItems(CArchiveHandle& archive, const std::map<std::size_t, std::string>& files, Outcome outcome) {
    SArchiveEntry count;
    ASSERT_EQ(kArchiveOk, GetArchiveItem(archive.pReader, -1, &count));
    std::set<std::size_t> met;
    int refused = 0;
    for (std::int32_t index = 0; index < count.nIndex; ++index) {
        SArchiveEntry entry;
        ArchiveStatus status = GetArchiveItem(archive.pReader, index, &entry);
        if (status != kArchiveOk) {
            EXPECT_EQ(kArchiveMismatch, status);
            ReadAll(archive, index, entry, 1, status);
            EXPECT_EQ(kArchiveInflate, status);
            ++refused;
            continue;
        }
        const auto file = files.find(entry.nUncompressedSize);
        if (file == files.end())
            continue; // a folder, or what the packer adds
        for (const std::size_t piece : {std::size_t{1000}, std::size_t{1} << 20}) {
            const bool isSame = ReadAll(archive, index, entry, piece, status) == file->second;
            // Of wrong passwords, one in 256 passes the test of one byte and comes out as nonsense.
            EXPECT_EQ(isSame, outcome != Outcome::WrongPassword) << platform::ToUtf8(entry.szName);
            if (isSame) {
                EXPECT_EQ(kArchiveOk, status);
            }
        }
        met.insert(file->first);
    }
    if (outcome == Outcome::ItemsRefused)
        EXPECT_GT(refused, 0);
    else
        EXPECT_EQ(files.size(), met.size());
}

// A folder of files, packed by other people's programs, and read from memory, by name and by handle.
TEST(Archive, ReadsWhatOtherProgramsPack) {
    const TempFolder folder;
    const fs::path tree = folder.Path() / "tree";
    fs::create_directories(tree / "sub/empty");
    std::mt19937 random(7);
    std::string noise(40000, '\0');
    std::ranges::generate(noise, [&] { return static_cast<char>(random()); });
    std::string text;
    for (int n = 0; text.size() < 200000; ++n)
        text += "line " + std::to_string(n * 7919) + "\r\n";
    std::map<std::size_t, std::string> files;
    for (const auto& [name, data] : {std::pair<const char*, std::string>("short", "hello, world\n"),
                                     {"noise", noise},
                                     {"sub/text", text},
                                     {"sub/\xD0\xBA\xD0\xB0\xD0\xBC.txt", "cyrillic"}}) {
        std::ofstream(tree / name, std::ios::binary) << data;
        files[data.size()] = data;
    }
    for (const Packer& packer : Packers()) {
        const std::string program = packer.program;
        SCOPED_TRACE(program + " " + packer.arguments + " read with " +
                     (packer.password ? packer.password : "none"));
        if (std::system(("command -v " + program + " > /dev/null").c_str()) != 0) {
            ASSERT_TRUE(program != "zip" && program != "python3") << "is missing";
            std::printf("not here: %s\n", packer.program);
            continue;
        }
        ASSERT_EQ(0, std::system(("cd " + tree.string() + " && rm -f ../x ../*.zip && LC_ALL=C.UTF-8 " +
                                  program + " " + packer.arguments)
                                     .c_str()));
        const std::string path = folder.File("x");
        const std::string bytes = platform::ReadWholeFile(path).value();
        std::ofstream(folder.File("framed"), std::ios::binary) << std::string(777, 'P') << bytes;
        const int descriptor = ::open(folder.File("framed").c_str(), O_RDONLY | O_CLOEXEC);
        const platform::File file(descriptor);
        ASSERT_EQ(777, ::lseek(descriptor, 777, SEEK_SET));
        const std::u16string name = platform::FromUtf8(path);
        const void* const sources[] = {&file, name.c_str(), bytes.data()};
        for (std::uint32_t kind = kSourceFileHandle; kind <= kSourceMemory; ++kind) {
            const ArchivePtr archive(OpenArchive(sources[kind - 1], static_cast<std::uint32_t>(bytes.size()),
                                                 kind, packer.password));
            ASSERT_EQ(packer.outcome == Outcome::NotOpened ? kArchiveNotOpened : kArchiveOk,
                      LastArchiveStatus());
            if (archive)
                ExpectItems(*archive, files, packer.outcome);
        }
    }
}

TEST(Archive, FindsByNameAndPosition) {
    const std::string bytes =
        Zip({{"gui.rus.ini", "r"}, {"GUI.ENG.INI", "english"}, {"gui.eng.ini", "later"}});
    const auto archive = Open(bytes);
    ASSERT_TRUE(archive);
    CArchiveReader* const reader = archive->pReader;
    struct Row {
        std::u16string name;
        bool ignoreCase;
        std::int32_t index;
    };
    const Row rows[] = {{u"gui.eng.ini", true, 1},
                        {u"gui.eng.ini", false, 2},
                        {u"Gui.Eng.Ini", false, -1},
                        {u"gui.eng.in", true, -1},
                        {std::u16string(256, u'a'), true, -1},
                        {u"", true, -1},
                        {u"GUI.RUS.INI", true, 0}};
    for (const Row& row : rows) {
        std::int32_t index = 77;
        SArchiveEntry entry;
        EXPECT_EQ(row.index < 0 ? kArchiveNotFound : kArchiveOk,
                  FindArchiveItem(reader, row.name.c_str(), row.ignoreCase, &index, &entry));
        EXPECT_EQ(row.index, index);
        EXPECT_EQ(row.index, entry.nIndex);
    }
    // A find that fails disturbs neither the walk nor the item that is being read; one that succeeds ends it.
    char two[2];
    EXPECT_EQ(kArchiveMore, ReadArchiveItem(reader, 1, two, 2));
    EXPECT_EQ(kArchiveNotFound, FindArchiveItem(reader, u"none", true, nullptr, nullptr));
    EXPECT_EQ(kArchiveMore, ReadArchiveItem(reader, 1, two, 2));
    EXPECT_EQ('g', two[0]);
    EXPECT_EQ(kArchiveOk, FindArchiveItem(reader, u"gui.rus.ini", true, nullptr, nullptr));
    EXPECT_EQ(kArchiveMore, ReadArchiveItem(reader, 1, two, 2));
    EXPECT_EQ('e', two[0]);
    char exact[7];
    EXPECT_EQ(kArchiveOk, GetArchiveItem(reader, 0, std::make_unique<SArchiveEntry>().get()));
    EXPECT_EQ(kArchiveMore, ReadArchiveItem(reader, 1, exact, 7));
    EXPECT_EQ("english", std::string(exact, 7));
    EXPECT_EQ(kArchiveOk, ReadArchiveItem(reader, 1, exact, 7));

    SArchiveEntry entry;
    for (const std::int32_t index : {3, -2, 0x7FFFFFFF}) {
        EXPECT_EQ(kArchiveArguments, GetArchiveItem(reader, index, &entry));
        EXPECT_EQ(kArchiveArguments, ReadArchiveItem(reader, index, two, 2));
    }
    EXPECT_EQ(kArchiveArguments, ReadArchiveItem(reader, -1, two, 2));
    EXPECT_EQ(kArchiveArguments, GetArchiveItem(nullptr, 0, &entry));
    EXPECT_EQ(kArchiveOk, GetArchiveItem(reader, -1, &entry));
    EXPECT_EQ(3, entry.nIndex);
    EXPECT_EQ(u'\0', entry.szName[0]);

    CArchiveHandle foreign{2, reader};
    EXPECT_EQ(kArchiveNoHandle, CloseArchive(&foreign));
    EXPECT_EQ(kArchiveArguments, CloseArchive(nullptr));
    EXPECT_EQ(kArchiveArguments, LastArchiveStatus());
}

TEST(Archive, TellsAttributesAndTimes) {
    constexpr std::uint32_t kDate = (2024 - 1980) << 9 | 2 << 5 | 29;
    constexpr std::uint32_t kTime = 13 << 11 | 37 << 5 | 21; // 13:37:42
    const auto fileTime = [](std::int64_t seconds) { return (seconds + 11644473600) * 10000000; };
    std::tm local{42, 37, 13, 29, 1, 124, 0, 0, -1, 0, nullptr};
    const std::int64_t dos = fileTime(std::mktime(&local));
    const auto stamp = [](int flags, const std::string& times) {
        return "Ut" + support::Le16(4) + "skip" + "UT" +
               support::Le16(static_cast<std::uint32_t>(times.size()) + 1) + static_cast<char>(flags) + times;
    };
    const std::string late = support::Le32(0x7FFFFFFF);
    const std::string early = support::Le32(0xFFFFFFFF); // signed: a second before 1970
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
        {"no date", 0x0314, 0200U << 16, 0, "", 32, 0, 0, 0},
        {"all times", 0, 0, kDate, stamp(7, late + early + support::Le32(0)), 0, fileTime(0x7FFFFFFF),
         fileTime(-1), fileTime(0)},
        {"the access time alone", 0, 0, kDate, stamp(2, late), 0, dos, fileTime(0x7FFFFFFF), dos},
        {"more flags than times", 0, 0, kDate, stamp(7, early), 0, fileTime(-1), dos, dos},
        {"a record longer than the field", 0, 0, kDate, "UT" + support::Le16(50) + "\1" + late, 0, dos, dos,
         dos},
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

// One damage each to an archive of two items; the second stays readable wherever the archive opens.
TEST(Archive, RefusesDamageWithItsStatus) {
    using support::Le16;
    using support::Le32;
    const std::string text(5000, 'x');
    const std::string sound = Zip({{"first", text}, {"second", "good", false}});
    const std::size_t central = sound.find("PK\1\2");
    const std::size_t end = sound.find("PK\5\6");
    const auto at = [](std::size_t place, std::string value) {
        return [=](std::string& bytes) { bytes.replace(place, value.size(), value); };
    };
    // The same value in both headers of the first item.
    const auto both = [&](std::size_t local, const std::string& value) {
        return [=](std::string& bytes) {
            bytes.replace(local, value.size(), value);
            bytes.replace(central + local + 2, value.size(), value);
        };
    };
    struct Row {
        const char* name;
        std::function<void(std::string&)> damage;
        ArchiveStatus open, get, read; // get and read: of the first item
    };
    const Row rows[] = {
        {"nothing", [](std::string&) {}, 0, 0, kArchiveMore},
        {"empty", [](std::string& b) { b.clear(); }, kArchiveNotOpened, 0, 0},
        {"end record at the very beginning", [](std::string& b) { b = support::EndRecord(0, 0, 0); },
         kArchiveNotOpened, 0, 0},
        {"cut within the end record", [&](std::string& b) { b.resize(end + 21); }, kArchiveNotOpened, 0, 0},
        {"another disk", at(end + 4, Le16(1)), kArchiveNotOpened, 0, 0},
        {"counts differ", at(end + 8, Le16(1)), kArchiveNotOpened, 0, 0},
        {"directory behind its end", at(end + 16, Le32(0xFFFFFFFF)), kArchiveNotOpened, 0, 0},
        {"no directory header", at(central, "PX"), kArchiveNotOpened, 0, 0},
        {"ZIP64 locator", [&](std::string& b) { b.insert(end, "PK\6\7" + std::string(16, '\0')); },
         kArchiveNotOpened, 0, 0},
        {"comment of 60000", [](std::string& b) { b += std::string(60000, 'c'); }, 0, 0, kArchiveMore},
        {"70000 bytes behind", [](std::string& b) { b += std::string(70000, 'c'); }, kArchiveNotOpened, 0, 0},
        {"1000 bytes in front", [](std::string& b) { b.insert(0, std::string(1000, 'f')); }, 0, 0,
         kArchiveMore},
        {"no local header", at(0, "PX"), 0, kArchiveMismatch, kArchiveInflate},
        {"another method", at(8, Le16(0)), 0, kArchiveMismatch, kArchiveInflate},
        {"unknown method", both(8, Le16(12)), 0, kArchiveMismatch, kArchiveInflate},
        {"CRC differs", at(14, Le32(7)), 0, kArchiveMismatch, kArchiveInflate},
        {"size differs", at(18, Le32(7)), 0, kArchiveMismatch, kArchiveInflate},
        {"size differs, with a descriptor",
         [](std::string& b) { b.replace(6, 2, Le16(8)).replace(14, 12, 12, '\0'); }, 0, 0, kArchiveMore},
        {"name length differs", at(26, Le16(4)), 0, kArchiveMismatch, kArchiveInflate},
        {"extra field past the end", at(28, Le16(0xFFFF)), 0, kArchiveExtraField, kArchiveInflate},
        {"sizes of ZIP64", both(22, Le32(0xFFFFFFFF)), 0, kArchiveMismatch, kArchiveInflate},
        {"stream damaged", at(35, "\xFF\xFF"), 0, 0, kArchiveInflate},
        {"compressed size past the end", both(18, Le32(0x7FFFFFFF)), 0, 0, kArchiveInflate},
        {"stream cut", both(18, Le32(4)), 0, 0, kArchiveInflate},
        {"stream ends early", both(22, Le32(6000)), 0, 0, kArchiveMore},
        {"CRC wrong in both", both(14, Le32(7)), 0, 0, kArchiveMore},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::string bytes = sound;
        row.damage(bytes);
        bytes.shrink_to_fit();
        const auto archive = Open(bytes);
        ASSERT_EQ(row.open, LastArchiveStatus());
        if (!archive)
            continue;
        SArchiveEntry entry;
        EXPECT_EQ(row.get, GetArchiveItem(archive->pReader, 0, &entry));
        EXPECT_EQ(kArchiveOk, FindArchiveItem(archive->pReader, u"first", false, nullptr, &entry));
        EXPECT_EQ(0, entry.nIndex);
        EXPECT_EQ(row.get == kArchiveOk, entry.szName[0] == u'f');
        std::string buffer(6000, '\0');
        EXPECT_EQ(row.read, ReadArchiveItem(archive->pReader, 0, buffer.data(), 6000));
        if (row.read == kArchiveMore) {
            EXPECT_EQ(text, buffer.substr(0, 5000));
        }
        EXPECT_EQ(kArchiveMore, ReadArchiveItem(archive->pReader, 1, buffer.data(), 6000));
        EXPECT_EQ("good", buffer.substr(0, 4));
    }
    EXPECT_FALSE(ArchivePtr(OpenArchive(sound.data(), 100, 4, nullptr)));
    EXPECT_EQ(kArchiveArguments, LastArchiveStatus());
    EXPECT_FALSE(ArchivePtr(OpenArchive(u"no/such/file", 0, kSourceFileName, nullptr)));
    EXPECT_EQ(kArchiveNotOpened, LastArchiveStatus());
    int ends[2];
    ASSERT_EQ(0, ::pipe(ends));
    const platform::File readEnd(ends[0]), writeEnd(ends[1]);
    EXPECT_FALSE(ArchivePtr(OpenArchive(&readEnd, 0, kSourceFileHandle, nullptr)));
    EXPECT_EQ(kArchiveSeek, LastArchiveStatus());
}

// A hundred items over one and the same mebibyte of zeros: each read stays within what was asked for.
TEST(Archive, StaysWithinABombsBounds) {
    std::string bytes = Zip({{"bomb", std::string(std::size_t{1} << 20, '\0')}});
    const std::size_t central = bytes.find("PK\1\2");
    const std::string header = bytes.substr(central, bytes.find("PK\5\6") - central);
    bytes.resize(central);
    constexpr std::size_t kItems = 100;
    for (std::size_t n = 0; n < kItems; ++n)
        bytes += header;
    bytes += support::EndRecord(kItems, kItems * header.size(), central);
    const auto archive = Open(bytes);
    ASSERT_TRUE(archive);
    std::string buffer(1000, 'x');
    for (std::int32_t n = 0; n < static_cast<std::int32_t>(kItems); ++n) {
        EXPECT_EQ(kArchiveMore, ReadArchiveItem(archive->pReader, n, buffer.data(), 900));
        EXPECT_EQ(std::string(900, '\0') + std::string(100, 'x'), buffer);
    }
}

} // namespace
