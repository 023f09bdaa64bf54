// What is wrong with a value of a settings document.
#pragma once

#include <string>

namespace host {

// Something in a document that cannot be stored, or that nobody could use.
struct SettingsProblem {
    std::string path; // XPath of the element: "/config/cams/item[3]/Name"
    std::string key;  // a word of the page's own texts: "mustBeUnique"
    std::string text; // the same in English, for programs
};

} // namespace host
