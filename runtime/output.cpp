// The output buffer.
#include "runtime/output.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <utility>

#include "runtime/program.h"
#include "runtime/strings.h"
#include "runtime/text.h"

namespace vesk::runtime {
namespace {

constexpr std::size_t BUFFER_SIZE = 1 << 16;
char gBuffer[BUFFER_SIZE];
std::size_t gFilled = 0;
std::mutex gOutputMutex;

int gFailure = 0;

// What cannot be written is dropped: the program goes on as it would with output nobody reads. Its end tells. So is what
// had to wait for a reader when the program was interrupted.
void writeOut(std::string_view text) {
    while (!text.empty()) {
        ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
        if (written < 0 && errno != EINTR) gFailure = errno;
        if (written == 0 || (written < 0 && errno != EINTR)) return;
        if (written > 0) text.remove_prefix(std::size_t(written));
        if (!text.empty() && isInterruptionRequested()) return;
    }
}

void writeBuffer() {
    writeOut({gBuffer, gFilled});
    gFilled = 0;
}

bool isTerminal() {
    static const bool answer = ::isatty(STDOUT_FILENO) == 1;
    return answer;
}

void append(std::string_view text) {
    if (gFilled + text.size() > BUFFER_SIZE) writeBuffer();
    if (text.size() > BUFFER_SIZE) return writeOut(text);
    std::memcpy(gBuffer + gFilled, text.data(), text.size());
    gFilled += text.size();
}

}  // namespace

void writeOutput(std::string_view text) {
    std::lock_guard lock(gOutputMutex);
    append(text);
    if (isTerminal() && text.find('\n') != text.npos) writeBuffer();
}

void flushOutput() {
    // A panic may have come while this thread was writing: then what is there is all there will be.
    std::unique_lock lock(gOutputMutex, std::try_to_lock);
    writeBuffer();
}

int outputFailure() {
    std::unique_lock lock(gOutputMutex, std::try_to_lock);
    return std::exchange(gFailure, 0);
}

extern "C" {

// `print(x)`: the text of any value and a line end.
void vesk_print(const Object* value) {
    const String* text = vesk_rt_text(value);
    std::lock_guard lock(gOutputMutex);
    append(viewOf(text));
    append("\n");
    if (isTerminal()) writeBuffer();
}

void vesk_rt_flush_output() { flushOutput(); }

}  // extern "C"
}  // namespace vesk::runtime
