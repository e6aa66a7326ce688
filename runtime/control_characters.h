// Paths and messages on their way to a terminal: what it might act on is shown as vesk writes it in texts. So a file's name
// can neither colour nor move the cursor, and every message stays on its line.
#pragma once

#include <string>
#include <string_view>

namespace vesk::runtime {

// "a\x1Bb\n" is shown as "a\u{1B}b\n", with a backslash and an n. The control characters are those of ASCII and, in UTF-8,
// U+0080 to U+009F.
inline std::string withControlsShown(std::string_view text) {
    constexpr char DIGITS[] = "0123456789ABCDEF";
    std::string shown;
    shown.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); at++) {
        unsigned code = static_cast<unsigned char>(text[at]);
        const unsigned next = at + 1 < text.size() ? static_cast<unsigned char>(text[at + 1]) : 0;
        const bool isOfTwoBytes = code == 0xC2 && next >= 0x80 && next < 0xA0;
        if (isOfTwoBytes) {
            code = next;
            at++;
        }
        if (!isOfTwoBytes && code >= 0x20 && code != 0x7F) {
            shown += text[at];
        } else if (code == '\n') {
            shown += "\\n";
        } else if (code == '\t') {
            shown += "\\t";
        } else if (code == '\r') {
            shown += "\\r";
        } else {
            shown += "\\u{";
            shown += DIGITS[code >> 4];
            shown += DIGITS[code & 15];
            shown += '}';
        }
    }
    return shown;
}

}  // namespace vesk::runtime
