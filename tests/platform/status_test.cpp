#include "platform/status.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

#include "platform/messages.h"
#include "platform/text.h"

namespace {

TEST(StatusTest, ErrorNumbersThatOperatorsKnow) {
    const struct {
        int value;
        std::uint32_t file, socket;
    } rows[] = {{0, 0, 0},          {ENOENT, 2, 31},        {EACCES, 5, 10013},       {EMFILE, 4, 10024},
                {EBADF, 6, 10038},  {ENOMEM, 8, 10055},     {EEXIST, 80, 31},         {EINVAL, 87, 10022},
                {ENOSPC, 112, 31},  {EAGAIN, 1450, 10035},  {ECONNRESET, 31, 10054},  {EPIPE, 31, 10058},
                {EINTR, 31, 10004}, {ETIMEDOUT, 31, 10060}, {ECONNREFUSED, 31, 10061}};
    for (const auto& row : rows) {
        EXPECT_EQ(platform::ErrorFromErrno(row.value), row.file) << row.value;
        EXPECT_EQ(platform::SocketErrorFromErrno(row.value), row.socket) << row.value;
    }
    EXPECT_EQ(platform::StatusFromError(10054), MakeStatus(0x80072746));
    EXPECT_EQ(platform::StatusFromError(0x12345), MakeStatus(0x80072345));
    EXPECT_EQ(platform::StatusFromError(0), S_OK);
    EXPECT_EQ(platform::StatusFromError(0x80004005), E_FAIL);
}

TEST(StatusTest, TheLastErrorIsTheThreadsOwn) {
    platform::SetLastError(5);
    std::jthread([] {
        EXPECT_EQ(platform::LastError(), 0U);
        platform::SetLastError(6);
    }).join();
    EXPECT_EQ(platform::LastError(), 5U);
}

TEST(MessageTest, Texts) {
    const std::pair<std::uint32_t, std::string_view> rows[] = {
        {0, "The operation completed successfully.\r\n"},
        {5, "Access is denied.\r\n"},
        {0x80070005, "Access is denied.\r\n"},
        {0x80070057, "The parameter is incorrect.\r\n"},
        {0x8007000E, "Not enough memory resources are available to complete this operation.\r\n"},
        {0x80070490, "Element not found.\r\n"},
        {0x800704D4, "The network connection was aborted by the local system.\r\n"},
        {0x80072746, "An existing connection was forcibly closed by the remote host.\r\n"},
        {0x80004001, "Not implemented\r\n"},
        {0x80004002, "No such interface supported\r\n"},
        {0x80004003, "Invalid pointer\r\n"},
        {0x80004005, "Unspecified error\r\n"},
        {0x8000FFFF, "Catastrophic failure\r\n"},
        {0x8000000A, "The data necessary to complete this operation is not yet available.\r\n"},
        {0x8007000B, "An attempt was made to load a program with an incorrect format.\r\n"},
        {0x80070072, "The target internal file identifier is incorrect.\r\n"},
        {0x800701E7, "Attempt to access invalid address.\r\n"},
        {0x80040111, "ClassFactory cannot supply requested class\r\n"},
        {0x80040154, "Class not registered\r\n"},
        {7777, ""},
        {0x8007FFFF, ""},
        {0x80030005, ""}, // the same number in another family
        {0xFFFFFFFF, ""}};
    for (const auto& [code, text] : rows)
        EXPECT_EQ(platform::ToUtf8(platform::MessageText(code)), text) << std::hex << code;
    // Whatever the mappers give, an operator can read.
    for (int value = 0; value < 200; ++value) {
        EXPECT_FALSE(platform::MessageText(platform::ErrorFromErrno(value)).empty()) << value;
        EXPECT_FALSE(platform::MessageText(platform::SocketErrorFromErrno(value)).empty()) << value;
    }
}

} // namespace
