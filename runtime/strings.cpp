// The members of String. Positions are code points; text that is ASCII alone takes the direct way, since there a
// code point is a byte.
#include "runtime/strings.h"

#include <cstring>
#include <vector>

#include "runtime/memory.h"
#include "runtime/panic.h"
#include "runtime/records.h"
#include "runtime/string_index.h"

namespace vesk::runtime {
namespace {

bool isAscii(const String* string) { return string->byteLength == string->codePoints; }

void checkReceiver(const Object* object) {
    if (!object) vesk_rt_panic_null();
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }

}  // namespace

std::int64_t countCodePoints(std::string_view text) {
    std::int64_t continuations = 0;
    for (char byte : text) continuations += isContinuationByte(byte);
    // A text that begins inside a sequence still has one code point per start.
    return std::int64_t(text.size()) - continuations + (!text.empty() && isContinuationByte(text[0]) ? 1 : 0);
}

String* newString(std::int64_t byteLength, std::int64_t codePoints) {
    String* string = static_cast<String*>(allocateBytes(stringObjectSize(byteLength, codePoints), true));
    string->record = &vesk_class_String.record;
    string->byteLength = byteLength;
    string->codePoints = codePoints;
    string->bytes[byteLength] = '\0';
    beginIndex(string);
    return string;
}

String* makeString(std::string_view text, std::int64_t codePoints) {
    String* string = newString(std::int64_t(text.size()), codePoints);
    if (!text.empty()) std::memcpy(string->bytes, text.data(), text.size());
    return string;
}

String* makeString(std::string_view text) { return makeString(text, countCodePoints(text)); }

extern "C" {

std::int32_t vesk_String_length(const String* self) {
    checkReceiver(self);
    return std::int32_t(self->codePoints);
}

String* vesk_String_charAt(const String* self, std::int32_t index) {
    checkReceiver(self);
    if (index < 0 || index >= self->codePoints) vesk_rt_panic_index(index, self->codePoints);
    std::size_t begin = byteOffset(self, index);
    std::string_view text = viewOf(self);
    std::size_t end = isAscii(self) ? begin + 1 : nextCodePoint(text, begin);
    return makeString(text.substr(begin, end - begin), 1);
}

String* vesk_String_substring(const String* self, std::int32_t from, std::int32_t to) {
    checkReceiver(self);
    if (from < 0 || from > self->codePoints) vesk_rt_panic_index(from, self->codePoints);
    if (to < from || to > self->codePoints) vesk_rt_panic_index(to, self->codePoints);
    std::size_t begin = byteOffset(self, from), end = byteOffset(self, to);
    return makeString(viewOf(self).substr(begin, end - begin), to - from);
}

std::int32_t vesk_String_indexOf(const String* self, const String* text) {
    checkReceiver(self);
    checkReceiver(text);
    std::size_t at = viewOf(self).find(viewOf(text));
    if (at == std::string_view::npos) return -1;
    return std::int32_t(isAscii(self) ? std::int64_t(at) : countCodePoints(viewOf(self).substr(0, at)));
}

bool vesk_String_contains(const String* self, const String* text) {
    checkReceiver(self);
    checkReceiver(text);
    return viewOf(self).find(viewOf(text)) != std::string_view::npos;
}

bool vesk_String_startsWith(const String* self, const String* text) {
    checkReceiver(self);
    checkReceiver(text);
    return viewOf(self).starts_with(viewOf(text));
}

bool vesk_String_endsWith(const String* self, const String* text) {
    checkReceiver(self);
    checkReceiver(text);
    return viewOf(self).ends_with(viewOf(text));
}

String* vesk_String_trim(const String* self) {
    checkReceiver(self);
    std::string_view text = viewOf(self);
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return makeString(text, self->codePoints - (self->byteLength - std::int64_t(text.size())));
}

// An empty `what` is found nowhere.
String* vesk_String_replace(const String* self, const String* what, const String* with) {
    checkReceiver(self);
    checkReceiver(what);
    checkReceiver(with);
    std::string_view text = viewOf(self), searched = viewOf(what);
    if (searched.empty()) return makeString(text, self->codePoints);
    std::string out;
    std::size_t from = 0;
    for (std::size_t at; (at = text.find(searched, from)) != std::string_view::npos; from = at + searched.size()) {
        out.append(text, from, at - from);
        out += viewOf(with);
    }
    out.append(text, from);
    return makeString(out);
}

// An empty separator takes the text apart into its code points.
Array* vesk_String_split(const String* self, const String* separator) {
    checkReceiver(self);
    checkReceiver(separator);
    std::string_view text = viewOf(self), mark = viewOf(separator);
    std::vector<std::string_view> parts;
    if (mark.empty()) {
        for (std::size_t at = 0; at < text.size();) {
            std::size_t end = nextCodePoint(text, at);
            parts.push_back(text.substr(at, end - at));
            at = end;
        }
    } else {
        std::size_t from = 0;
        for (std::size_t at; (at = text.find(mark, from)) != std::string_view::npos; from = at + mark.size())
            parts.push_back(text.substr(from, at - from));
        parts.push_back(text.substr(from));
    }
    Array* array = vesk_rt_new_array(&vesk_class_StringArray.record, std::int32_t(parts.size()));
    String** elements = static_cast<String**>(array->elements());
    for (std::size_t i = 0; i < parts.size(); i++) elements[i] = makeString(parts[i]);
    return array;
}

const String* vesk_String_toString(const String* self) {
    checkReceiver(self);
    return self;
}

bool vesk_String_equals(const String* self, const Object* other) {
    checkReceiver(self);
    if (self == other) return true;
    if (!other || other->record != &vesk_class_String.record) return false;
    return viewOf(self) == viewOf(static_cast<const String*>(other));
}

std::int32_t vesk_String_hashCode(const String* self) {
    checkReceiver(self);
    std::uint32_t hash = 0;
    for (char byte : viewOf(self)) hash = hash * 31 + static_cast<unsigned char>(byte);
    return std::int32_t(hash);
}

// The order of code points, which in UTF-8 is that of the bytes.
std::int32_t vesk_String_compareTo(const String* self, const String* other) {
    checkReceiver(self);
    checkReceiver(other);
    int order = viewOf(self).compare(viewOf(other));
    return order < 0 ? -1 : order > 0 ? 1 : 0;
}

}  // extern "C"
}  // namespace vesk::runtime
