#include "viewing/RequestText.h"

#include "platform/base64.h"
#include "platform/text.h"

std::u16string MakeRequestText(std::span<const std::uint8_t> credentials) {
    std::u16string text = u"GET video?original HTTP/1.1\n"
                          u"peer-info: 127.0.0.1:0\n"
                          u"User-Agent: Morrowstream\n"
                          u"QV-Auth: ";
    text += platform::FromUtf8(
        platform::Base64({reinterpret_cast<const char*>(credentials.data()), credentials.size()}));
    return text += u"\n\n";
}
