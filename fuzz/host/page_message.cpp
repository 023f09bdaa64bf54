// What the page of a browser that is a camera says, as anybody with such a browser may say it: what is taken
// is in range, and what goes on from it can be read again.

#include <nlohmann/json.hpp>

#include "fuzz/Fuzz.h"
#include "host/bridge/page_message.h"
#include "host/http/limits.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = AsText(data, size);
    const auto in = [](int value, int least, int most) { return value >= least && value <= most; };
    if (const auto message = host::ReadPageMessage(text)) {
        Require(size <= host::kMostPageTextBytes);
        if (const auto* const state = std::get_if<host::PhoneState>(&*message))
            Require(in(state->width, 0, 16384) && in(state->height, 0, 16384) && in(state->rate, 0, 120));
        else
            Require(nlohmann::json::parse(host::PongMessage(std::get<host::PagePing>(*message)))["at"]
                        .is_number());
    }
    if (const auto control = host::ControlMessage(text)) {
        const auto json = nlohmann::json::parse(*control);
        Require(json["type"] == "control" && json.size() > 1 &&
                json.contains("width") == json.contains("height"));
    }
    if (const auto picture = host::ReadPagePicture(text))
        Require(!picture->jpeg.empty() && picture->jpeg.size() <= host::kMaxPhonePictureBytes &&
                picture->jpeg.end() == text.end());
    return 0;
}
