// Runs something at the end of a scope, on every way out.
#pragma once

#include <utility>

namespace platform {

template <class Action>
class [[nodiscard]] AtScopeEnd {
public:
    explicit AtScopeEnd(Action action) : m_action(std::move(action)) {}
    AtScopeEnd(const AtScopeEnd&) = delete;
    AtScopeEnd& operator=(const AtScopeEnd&) = delete;
    ~AtScopeEnd() { m_action(); }

private:
    Action m_action;
};

} // namespace platform
