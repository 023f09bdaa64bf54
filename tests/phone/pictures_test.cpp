#include <gtest/gtest.h>

#include <fstream>

#include "phone/pictures.h"
#include "phone/scripted_server.h"
#include "support/temp_folder.h"

namespace phone::test {
namespace {

using namespace std::string_view_literals;

TEST(Pictures, FindsTheSizeInAnyFrameHeaderAndSurvivesWhatHasNone) {
    const auto size = JpegSize("\xFF\xD8\xFF\xE0\x00\x04..\xFF\xFF\xC2\x00\x11\x08\x01\x02\x03\x04"sv);
    ASSERT_TRUE(size && size->height == 0x102 && size->width == 0x304);
    for (const std::string_view file : {
             ""sv,
             "\xFF\xD8"sv,
             "\x89PNG\r\n\x1A\n"sv,
             "\xFF\xD8\xFF\xDA\x00\x08"sv,                         // a scan without a frame
             "\xFF\xD8\xFF\xE0\xFF\xFF\x00"sv,                     // a segment beyond the end
             "\xFF\xD8\xFF\xE0\x00"sv,                             // no length
             "\xFF\xD8\xFF\xC0\x00\x11\x08\x01\x02\x03"sv,         // the size is cut off
             "\xFF\xD8\xFF\xC4\x00\x02\xFF\xC8\x00\x02\xFF\xCC"sv, // no frame headers, for all their numbers
             "\xFF\xD8\xFF\xFF\xFF\xFF"sv,
         })
        EXPECT_FALSE(JpegSize(file));
}

TEST(Pictures, AreSentWholeWhenTheyShareNoHead) {
    const std::string first = PictureFile("one");
    for (const std::string& second : {PictureFile("two", '!'), PictureFile("").substr(0, 606)}) {
        const PictureSequence pictures({first, second}, {"1", "2"}, kUsualSplit);
        EXPECT_EQ(pictures.Header(), "");
        EXPECT_EQ(pictures.Body(0), first);
        EXPECT_EQ(pictures.Body(3), second);
        EXPECT_NE(pictures.Note(), "");
    }
    EXPECT_EQ(PictureSequence({first}, {"1"}, 0).Note(), ""); // asked for, so nothing to say
}

TEST(Pictures, MustFitIntoSixteenBits) {
    const std::string largest = PictureFile(std::string(65535, 'x'));
    EXPECT_EQ(PictureSequence({largest}, {"1"}, kUsualSplit).Body(0).size(), 65535U);
    EXPECT_THROW(PictureSequence({largest + "x"}, {"1"}, kUsualSplit), PictureError);
    EXPECT_THROW(PictureSequence({largest}, {"1"}, 0), PictureError);
    EXPECT_THROW(PictureSequence({largest, PictureFile("", '!')}, {"1", "2"}, kUsualSplit), PictureError);
}

TEST(Pictures, ComeFromAFolderInTheOrderOfTheirNames) {
    const TempFolder folder;
    const auto write = [&](const char* name, const std::string& bytes) {
        std::ofstream(folder.Path() / name, std::ios::binary) << bytes;
    };
    EXPECT_THROW(PictureSequence::Load(folder.Path(), kUsualSplit), PictureError); // nothing in it
    EXPECT_THROW(PictureSequence::Load(folder.Path() / "none", kUsualSplit), PictureError);
    write("b.jpg", PictureFile("b"));
    write("c.JPEG", PictureFile("c"));
    write("a.jpg", PictureFile("a"));
    write("notes.txt", "no picture");
    std::filesystem::create_directory(folder.Path() / "d.jpg");
    const PictureSequence pictures = PictureSequence::Load(folder.Path(), kUsualSplit);
    ASSERT_EQ(pictures.Count(), 3U);
    EXPECT_EQ(std::string(pictures.Body(0)).append(pictures.Body(1)).append(pictures.Body(2)), "abc");
    EXPECT_EQ(pictures.Size().width, 320U);
    write("e.jpg", "no picture");
    EXPECT_THROW(PictureSequence::Load(folder.Path(), kUsualSplit), PictureError);
}

} // namespace
} // namespace phone::test
