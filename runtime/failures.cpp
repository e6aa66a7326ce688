// `panic(message)` and `assert(condition, message)`.
#include "runtime/panic.h"
#include "runtime/strings.h"
#include "runtime/text.h"

namespace vesk::runtime {

extern "C" {

[[noreturn]] void vesk_panic(const Object* message) { panic(viewOf(vesk_rt_text(message))); }

void vesk_assert(bool condition, const String* message) {
    if (condition) return;
    std::string text = "assertion failed";
    if (message && message->byteLength > 0) text += ": " + std::string(viewOf(message));
    panic(text);
}

const String* vesk_str(const Object* value) { return vesk_rt_text(value); }

}  // extern "C"
}  // namespace vesk::runtime
