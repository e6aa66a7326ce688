// Upper and lower case of all of Unicode, one code point for one; a file of its own, so that programs without it do not carry
// the tables. What is not UTF-8 stays as it is.
#include <utf8proc.h>

#include <string>

#include "runtime/panic.h"
#include "runtime/strings.h"

namespace vesk::runtime {
namespace {

template <class Map>
String* mapped(const String* self, Map map) {
    if (!self) vesk_rt_panic_null();
    const std::string_view text = viewOf(self);
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const auto* const from = reinterpret_cast<const utf8proc_uint8_t*>(text.data()) + at;
        utf8proc_int32_t codePoint = 0;
        const utf8proc_ssize_t read = utf8proc_iterate(from, utf8proc_ssize_t(text.size() - at), &codePoint);
        if (read <= 0) {
            out += text[at++];
            continue;
        }
        utf8proc_uint8_t bytes[4];
        const utf8proc_ssize_t written = utf8proc_encode_char(map(codePoint), bytes);
        out.append(reinterpret_cast<const char*>(bytes), std::size_t(written));
        at += std::size_t(read);
    }
    return makeString(out);
}

}  // namespace

extern "C" {

String* vesk_String_upper(const String* self) {
    // Unicode's one-for-one mappings leave the sharp s as it is; utf8proc makes it the capital that hardly anybody writes.
    constexpr utf8proc_int32_t SHARP_S = 0xDF;
    return mapped(self, [](utf8proc_int32_t c) { return c == SHARP_S ? c : utf8proc_toupper(c); });
}

String* vesk_String_lower(const String* self) { return mapped(self, utf8proc_tolower); }

}  // extern "C"
}  // namespace vesk::runtime
