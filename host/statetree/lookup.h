// What the host itself does with the process state tree.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "interfaces/IProcessStateTree.h"
#include "platform/com.h"

namespace host {

// A node of this process's tree, through its registered class. Null when it is not there, or, with `create`,
// cannot be made.
platform::ComPtr<IProcessStateNode> FindStateNode(const char16_t* szPath, bool create);

// The credentials block of the request for which the calling thread works. To be used during the present call
// only. Nothing when the thread has published none.
std::optional<std::span<const std::uint8_t>> CurrentRequest();

} // namespace host
