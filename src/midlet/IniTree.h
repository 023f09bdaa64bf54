// A language file of the midlets: sections of keys with their texts.
//
//     [Sendora]
//     ; a comment, up to the end of its line
//     alert_ok=OK
//
// White space is blank, tab, carriage return and line feed. A text cannot hold "[", "]" or ";", and no part
// holds tabs or line ends: they are left out of names and keys, tabs of texts. Blanks stay everywhere but in
// front of a name or key.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct CIniNode {
    std::string strName;
    std::string strValue;            // of a key
    std::vector<CIniNode> oChildren; // in the order of their first appearance

    // Finds the child with exactly that name, or appends one. The reference is valid until the next child is
    // appended.
    CIniNode& Child(std::string_view name);
};

// Holds the root; its children are the sections, and their children the keys.
class CIniTree {
public:
    // Fills the tree from a text, which ends at its first zero byte. A section or key that comes again goes
    // on the old one, a key with the new text. False for a text that does not begin with a section, or ends
    // within a section's name or a key; the tree then holds what came before.
    [[nodiscard]] bool LoadIni(std::string_view text);

    [[nodiscard]] CIniNode& Root() noexcept { return m_oRoot; }

private:
    CIniNode m_oRoot;
};
