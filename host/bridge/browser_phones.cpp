#include "host/bridge/browser_phones.h"

#include <utility>

namespace host {
namespace {

using Mailboxes = std::map<std::string, BrowserPhones::MailboxPtr>;

void EraseIf(Mailboxes& mailboxes, const std::string& key, const BrowserPhones::MailboxPtr& mailbox) {
    if (const auto found = mailboxes.find(key); found != mailboxes.end() && found->second == mailbox)
        mailboxes.erase(found);
}

} // namespace

std::string BrowserPhones::Mailbox::TakeControl() {
    const std::lock_guard guard(m_mutex);
    if (m_controls.empty())
        return {};
    std::string message = std::move(m_controls.front());
    m_controls.pop_front();
    return message;
}

BrowserPhones::MailboxPtr BrowserPhones::Enter(const std::string& phone) {
    auto mailbox = std::make_shared<Mailbox>();
    const std::lock_guard guard(m_mutex);
    if (const auto former = std::exchange(m_phones[phone], mailbox)) {
        former->m_replaced = true;
        former->wakeup.Signal();
    }
    return mailbox;
}

void BrowserPhones::Leave(const std::string& phone, const MailboxPtr& mailbox) {
    const std::lock_guard guard(m_mutex);
    EraseIf(m_phones, phone, mailbox);
}

void BrowserPhones::Begin(const std::string& camera, MailboxPtr mailbox) {
    const std::lock_guard guard(m_mutex);
    m_cameras.insert_or_assign(camera, std::move(mailbox));
}

void BrowserPhones::End(const std::string& camera, const MailboxPtr& mailbox) {
    const std::lock_guard guard(m_mutex);
    EraseIf(m_cameras, camera, mailbox);
}

void BrowserPhones::LeavePause(Pause pause) {
    const std::lock_guard guard(m_mutex);
    m_pauses.insert_or_assign(pause.camera, pause);
}

std::vector<BrowserPhones::Pause>
BrowserPhones::TakeEndedPauses(const std::function<bool(const std::string& phone)>& isGood) {
    std::vector<Pause> ended;
    const std::lock_guard guard(m_mutex);
    std::erase_if(m_pauses, [&](const auto& item) {
        const bool over = !isGood(item.second.phone);
        if (over)
            ended.push_back(item.second);
        return over;
    });
    return ended;
}

bool BrowserPhones::Control(const std::string& camera, std::string message) {
    const std::lock_guard guard(m_mutex);
    const auto found = m_cameras.find(camera);
    if (found == m_cameras.end())
        return false;
    Mailbox& mailbox = *found->second;
    const std::lock_guard writing(mailbox.m_mutex);
    if (mailbox.m_controls.size() == Mailbox::kMostControls)
        mailbox.m_controls.pop_front();
    mailbox.m_controls.push_back(std::move(message));
    mailbox.wakeup.Signal();
    return true;
}

} // namespace host
