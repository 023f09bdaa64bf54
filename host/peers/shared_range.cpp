#include "host/peers/shared_range.h"

#include <random>

#include "host/peers/recording_answers.h"

namespace host {
namespace {

// Who passes over pictures in steps wider than that wants one at a time.
constexpr UnixMs kFewFrom = 2000;
constexpr std::size_t kMany = 1000;

std::string NewRangeId() {
    std::random_device random;
    return std::to_string(random()) + "." + std::to_string(random()) + "." + std::to_string(random());
}

} // namespace

RangeElsewhere::RangeElsewhere(const PeerAsker& asker, std::string node, std::int64_t camera, TimeSpan span)
    : m_asker(asker), m_node(std::move(node)), m_question{{"op", "range"},
                                                          {"camera", camera},
                                                          {"from", span.begin},
                                                          {"to", span.end},
                                                          {"id", NewRangeId()}} {}

void RangeElsewhere::Ask(UnixMs time) {
    m_question["part"] = m_part;
    m_question["time"] = time;
    m_question["most"] = time - m_newest > kFewFrom && m_newest > 0 ? std::size_t{1} : kMany;
    auto answer = m_asker.Ask(m_node, m_question);
    if (!answer) // once more: a message may have been lost, and a part is not made twice
        answer = m_asker.Ask(m_node, m_question);
    if (!answer)
        throw RecordingError("the host " + m_node + " does not answer any more, which has recordings");
    try {
        for (const PeerDocument& one : answer->at("pictures"))
            m_pictures.emplace_back(PictureIn(one.at(0)), one.at(1).get<UnixMs>());
        m_ended = answer->at("end").get<bool>();
    } catch (const PeerDocument::exception&) {
        throw RecordingError("the host " + m_node + " does not give its recordings as this one takes them");
    }
    ++m_part;
}

std::optional<RecordedPicture> RangeElsewhere::NextFrom(UnixMs time) {
    for (;;) {
        while (!m_pictures.empty()) {
            auto [picture, endBefore] = std::move(m_pictures.front());
            m_pictures.pop_front();
            m_newest = picture.time;
            if (picture.time < time && picture.file == m_file)
                continue;
            m_file = picture.file;
            m_endBefore = endBefore;
            return std::move(picture);
        }
        if (m_ended)
            return std::nullopt;
        Ask(time);
    }
}

void SharedRange::Fill(Part& part, UnixMs time) {
    part.head = part.range.NextFrom(time);
    part.hasLooked = true;
    if (!part.head)
        return;
    part.head->file += part.mark;
    part.endBefore = part.range.EndBefore();
}

std::optional<RecordedPicture> SharedRange::NextFrom(UnixMs time) {
    for (std::size_t i = 0; i < m_parts.size(); ++i) {
        if (!m_parts[i].hasLooked)
            Fill(m_parts[i], i == m_last ? time : 0);
    }
    for (;;) {
        Part* first = nullptr;
        for (Part& part : m_parts) {
            if (part.head && (first == nullptr || part.head->time < first->head->time))
                first = &part;
        }
        if (first == nullptr)
            return std::nullopt;
        if (first->head->time < time && first->head->file == m_file) {
            Fill(*first, time);
            continue;
        }
        RecordedPicture picture = std::move(*first->head);
        first->hasLooked = false;
        const auto index = static_cast<std::size_t>(first - m_parts.data());
        // What another host recorded before this is a file before it.
        m_endBefore = index == m_last ? first->endBefore : m_newest;
        m_last = index;
        m_file = picture.file;
        m_newest = picture.time;
        return picture;
    }
}

} // namespace host
