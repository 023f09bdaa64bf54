#include "platform/messages.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "platform/text.h"

namespace platform {

namespace {

struct Message {
    std::uint32_t code;
    std::u16string_view text;
};

constexpr Message kMessages[] = {
    {0, u"The operation completed successfully.\r\n"},
    {1, u"Incorrect function.\r\n"},
    {2, u"The system cannot find the file specified.\r\n"},
    {3, u"The system cannot find the path specified.\r\n"},
    {4, u"The system cannot open the file.\r\n"},
    {5, u"Access is denied.\r\n"},
    {6, u"The handle is invalid.\r\n"},
    {8, u"Not enough memory resources are available to process this command.\r\n"},
    {11, u"An attempt was made to load a program with an incorrect format.\r\n"},
    {13, u"The data is invalid.\r\n"},
    {14, u"Not enough memory resources are available to complete this operation.\r\n"},
    {29, u"The system cannot write to the specified device.\r\n"},
    {30, u"The system cannot read from the specified device.\r\n"},
    {31, u"A device attached to the system is not functioning.\r\n"},
    {32, u"The process cannot access the file because it is being used by another process.\r\n"},
    {50, u"The request is not supported.\r\n"},
    {80, u"The file exists.\r\n"},
    {87, u"The parameter is incorrect.\r\n"},
    {112, u"There is not enough space on the disk.\r\n"},
    {114, u"The target internal file identifier is incorrect.\r\n"},
    {122, u"The data area passed to a system call is too small.\r\n"},
    {126, u"The specified module could not be found.\r\n"},
    {127, u"The specified procedure could not be found.\r\n"},
    {183, u"Cannot create a file when that file already exists.\r\n"},
    {193, u"%1 is not a valid Win32 application.\r\n"},
    {258, u"The wait operation timed out.\r\n"},
    {487, u"Attempt to access invalid address.\r\n"},
    {998, u"Invalid access to memory location.\r\n"},
    {1113, u"No mapping for the Unicode character exists in the target multi-byte code page.\r\n"},
    {1168, u"Element not found.\r\n"},
    {1236, u"The network connection was aborted by the local system.\r\n"},
    {1450, u"Insufficient system resources exist to complete the requested service.\r\n"},
    {1812, u"The specified image file did not contain a resource section.\r\n"},
    {1813, u"The specified resource type cannot be found in the image file.\r\n"},
    {1814, u"The specified resource name cannot be found in the image file.\r\n"},
    {1815, u"The specified resource language ID cannot be found in the image file.\r\n"},
    {10004, u"A blocking operation was interrupted by a call to WSACancelBlockingCall.\r\n"},
    {10013, u"An attempt was made to access a socket in a way forbidden by its access permissions.\r\n"},
    {10014, u"The system detected an invalid pointer address in attempting to use a pointer argument in a "
            u"call.\r\n"},
    {10022, u"An invalid argument was supplied.\r\n"},
    {10024, u"Too many open sockets.\r\n"},
    {10035, u"A non-blocking socket operation could not be completed immediately.\r\n"},
    {10038, u"An operation was attempted on something that is not a socket.\r\n"},
    {10048, u"Only one usage of each socket address (protocol/network address/port) is normally "
            u"permitted.\r\n"},
    {10050, u"A socket operation encountered a dead network.\r\n"},
    {10051, u"A socket operation was attempted to an unreachable network.\r\n"},
    {10053, u"An established connection was aborted by the software in your host machine.\r\n"},
    {10054, u"An existing connection was forcibly closed by the remote host.\r\n"},
    {10055, u"An operation on a socket could not be performed because the system lacked sufficient buffer "
            u"space or because a queue was full.\r\n"},
    {10057, u"A request to send or receive data was disallowed because the socket is not connected and (when "
            u"sending on a datagram socket using a sendto call) no address was supplied.\r\n"},
    {10058, u"A request to send or receive data was disallowed because the socket had already been shut down "
            u"in that direction with a previous shutdown call.\r\n"},
    {10060,
     u"A connection attempt failed because the connected party did not properly respond after a period "
     u"of time, or established connection failed because connected host has failed to respond.\r\n"},
    {10061, u"No connection could be made because the target machine actively refused it.\r\n"},
    {10065, u"A socket operation was attempted to an unreachable host.\r\n"},
    {0x8000000A, u"The data necessary to complete this operation is not yet available.\r\n"},
    {0x80004001, u"Not implemented\r\n"},
    {0x80004002, u"No such interface supported\r\n"},
    {0x80004003, u"Invalid pointer\r\n"},
    {0x80004004, u"Operation aborted\r\n"},
    {0x80004005, u"Unspecified error\r\n"},
    {0x8000FFFF, u"Catastrophic failure\r\n"},
    {0x80040110, u"Class does not support aggregation (or class object is remote)\r\n"},
    {0x80040111, u"ClassFactory cannot supply requested class\r\n"},
    {0x80040154, u"Class not registered\r\n"},
};
static_assert(std::ranges::is_sorted(kMessages, {}, &Message::code), "looked up by halves");

std::u16string_view FindMessage(std::uint32_t code) noexcept {
    const auto found = std::ranges::lower_bound(kMessages, code, {}, &Message::code);
    return found != std::end(kMessages) && found->code == code ? found->text : std::u16string_view{};
}

} // namespace

std::u16string_view MessageText(std::uint32_t code) noexcept {
    constexpr std::uint32_t kErrorStatus = 0x80070000;
    return FindMessage((code & 0xFFFF0000) == kErrorStatus ? code & 0xFFFF : code);
}

namespace {

// The text of a code as the beginning of a sentence.
std::string Phrase(std::uint32_t code) {
    std::string text = ToUtf8(MessageText(code));
    text.resize(text.find_last_not_of(".\r\n ") + 1);
    return text;
}

} // namespace

std::string DescribeStatus(HRESULT hr) {
    char code[16];
    std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(hr));
    const std::string text = Phrase(static_cast<std::uint32_t>(hr));
    return text.empty() ? code : text + " (" + code + ")";
}

std::string DescribeLastError() {
    const std::string text = Phrase(LastError());
    return text.empty() ? DescribeStatus(StatusFromError(LastError())) : text;
}

} // namespace platform
