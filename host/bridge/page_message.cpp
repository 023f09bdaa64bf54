#include "host/bridge/page_message.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include <nlohmann/json.hpp>

#include "host/http/answer.h"
#include "host/http/limits.h"

namespace host {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kLongestSent = 16384;
constexpr int kFastestRate = 120;
// What an administrator may choose, as on the page.
constexpr std::array<std::pair<int, int>, 3> kSizes{{{320, 240}, {640, 480}, {1280, 720}}};
constexpr int kFastestChoice = 15;

// An object; nothing for any other text.
std::optional<Json> ReadObject(std::string_view text) {
    Json json = Json::parse(text, nullptr, false);
    return json.is_object() ? std::optional(std::move(json)) : std::nullopt;
}

const Json* Find(const Json& object, const char* name) {
    const auto found = object.find(name);
    return found == object.end() ? nullptr : &*found;
}

std::string_view TextIn(const Json& object, const char* name) {
    const Json* const value = Find(object, name);
    return value != nullptr && value->is_string() ? std::string_view(value->get_ref<const std::string&>())
                                                  : std::string_view();
}

// A whole number; nothing for another one, or none.
std::optional<int> NumberIn(const Json& object, const char* name, int least, int most) {
    const Json* const value = Find(object, name);
    if (value == nullptr || !value->is_number())
        return std::nullopt;
    const double number = value->get<double>();
    // Not what is no number either.
    if (!(number >= least && number <= most) || number != std::floor(number))
        return std::nullopt;
    return static_cast<int>(number);
}

std::optional<PhoneState> ReadState(const Json& message) {
    constexpr std::array<std::pair<std::string_view, PhoneState::Run>, 3> kRuns{
        {{"running", PhoneState::Run::Running},
         {"paused", PhoneState::Run::Paused},
         {"stopped", PhoneState::Run::Stopped}}};
    const std::string_view word = TextIn(message, "state");
    const auto* const run = std::ranges::find(kRuns, word, [](const auto& known) { return known.first; });
    const std::string_view facing = TextIn(message, "facing");
    const auto width = NumberIn(message, "width", 0, kLongestSent);
    const auto height = NumberIn(message, "height", 0, kLongestSent);
    const auto rate = NumberIn(message, "rate", 0, kFastestRate);
    if (run == kRuns.end() || (facing != "user" && facing != "environment") || !width || !height || !rate)
        return std::nullopt;
    PhoneState state{run->second, facing == "user", *width, *height, *rate};
    if (const Json* const torch = Find(message, "torch"); torch != nullptr && !torch->is_null()) {
        if (!torch->is_boolean())
            return std::nullopt;
        state.torch = torch->get<bool>();
    }
    return state;
}

} // namespace

std::optional<PageMessage> ReadPageMessage(std::string_view text) {
    const auto message = text.size() <= kMostPageTextBytes ? ReadObject(text) : std::nullopt;
    if (!message)
        return std::nullopt;
    const std::string_view type = TextIn(*message, "type");
    if (type == "state") {
        const auto state = ReadState(*message);
        return state ? std::optional<PageMessage>(*state) : std::nullopt;
    }
    const Json* const at = Find(*message, "at");
    if (type != "ping" || at == nullptr || !at->is_number() || !std::isfinite(at->get<double>()))
        return std::nullopt;
    return PagePing{at->get<double>()};
}

std::optional<PagePicture> ReadPagePicture(std::string_view message) {
    constexpr std::size_t kNumberBytes = 4;
    if (message.size() <= kNumberBytes || message.size() > kNumberBytes + kMaxPhonePictureBytes)
        return std::nullopt;
    std::uint32_t number = 0;
    for (const char byte : message.substr(0, kNumberBytes))
        number = number << 8 | static_cast<unsigned char>(byte);
    return PagePicture{number, message.substr(kNumberBytes)};
}

std::string ReadyMessage(std::string_view camera) {
    return JsonText({{"type", "ready"}, {"camera", camera}});
}

std::string AckMessage(std::uint32_t number, bool dropped) {
    return R"({"type":"ack","number":)" + std::to_string(number) + (dropped ? R"(,"dropped":true})" : "}");
}

std::string WatchedMessage(bool watched) {
    return JsonText({{"type", "watched"}, {"watched", watched}});
}

std::string PongMessage(const PagePing& ping) {
    return JsonText({{"type", "pong"}, {"at", ping.at}});
}

std::optional<std::string> ControlMessage(std::string_view body) {
    const auto wanted = body.size() <= kMostPageTextBytes ? ReadObject(body) : std::nullopt;
    if (!wanted || wanted->empty())
        return std::nullopt;
    Json message{{"type", "control"}};
    std::size_t understood = 0;
    if (const Json* const torch = Find(*wanted, "torch"); torch != nullptr && torch->is_boolean()) {
        message["torch"] = *torch;
        ++understood;
    }
    if (const auto facing = TextIn(*wanted, "facing"); facing == "user" || facing == "environment") {
        message["facing"] = facing;
        ++understood;
    }
    const auto width = NumberIn(*wanted, "width", 1, kLongestSent);
    const auto height = NumberIn(*wanted, "height", 1, kLongestSent);
    if (width && height && std::ranges::count(kSizes, std::pair(*width, *height)) != 0) {
        message["width"] = *width;
        message["height"] = *height;
        understood += 2;
    }
    if (const auto rate = NumberIn(*wanted, "rate", 1, kFastestChoice)) {
        message["rate"] = *rate;
        ++understood;
    }
    return understood == wanted->size() ? std::optional(JsonText(message)) : std::nullopt;
}

} // namespace host
