// Handlers only note the signal in a pipe, which is waited for together with the terminal.
#include "driver/terminal_input.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cwchar>

#include "il/interruption.h"

namespace vesk::compiler {
namespace {

constexpr wchar_t REPLACEMENT = 0xFFFD;
constexpr std::size_t READ_BYTES = 4096;
int gNoted[2] = {-1, -1};  // pipe

void note(int signal) {
    const int error = errno;
    const auto byte = static_cast<unsigned char>(signal);
    if (::write(gNoted[1], &byte, 1) < 0) errno = error;  // a full pipe has enough to tell
    errno = error;
}

void makePipe() {
    if (gNoted[0] < 0 && ::pipe2(gNoted, O_NONBLOCK | O_CLOEXEC) != 0) gNoted[0] = gNoted[1] = -1;
}

// The terminal of standard input, opened once more so that reading never waits: Ctrl-C empties what was typed, also
// between the moment it can be read and the reading.
int terminal() {
    static const int opened = ::open("/proc/self/fd/0", O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    return opened < 0 ? STDIN_FILENO : opened;
}

// 0 when there is none.
int takeNoted() {
    unsigned char byte = 0;
    return ::read(gNoted[0], &byte, 1) == 1 ? byte : 0;
}

}  // namespace

ScopedTerminalSignals::ScopedTerminalSignals() {
    makePipe();
    for (std::size_t i = 0; i < WATCHED.size(); i++) {
        ::sigaction(WATCHED[i], nullptr, &previous_[i]);
        if (previous_[i].sa_handler == SIG_IGN) continue;
        struct sigaction action{};
        action.sa_handler = note;
        action.sa_flags = SA_ONSTACK;
        ::sigaction(WATCHED[i], &action, nullptr);
    }
    forgetInterruption();  // one that came before was for what is over
}

// What came behind the end of the line is for what the line begins.
ScopedTerminalSignals::~ScopedTerminalSignals() {
    for (std::size_t i = 0; i < WATCHED.size(); i++) ::sigaction(WATCHED[i], &previous_[i], nullptr);
    while (const int signal = takeNoted()) ::raise(signal);
}

void ScopedTerminalSignals::actUpon(int signal) {
    struct sigaction own{};
    struct sigaction plain{};
    plain.sa_handler = SIG_DFL;
    ::sigaction(signal, &plain, &own);
    ::raise(signal);
    ::sigaction(signal, &own, nullptr);
}

void blockTerminalSignals(sigset_t& previous) {
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int signal : {SIGINT, SIGHUP, SIGTERM, SIGQUIT, SIGTSTP, SIGCONT, SIGWINCH}) sigaddset(&blocked, signal);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &previous);
}

TerminalInput::TerminalInput() { makePipe(); }

// Waits for bytes or a signal. Signals come first: they concern what was typed before.
TerminalInput::Event::Kind TerminalInput::fill() {
    using Kind = Event::Kind;
    for (;;) {
        pollfd waited[] = {{gNoted[0], POLLIN, 0}, {terminal(), POLLIN, 0}};
        if (::poll(waited, 2, -1) < 0 && errno != EINTR) return Kind::HungUp;
        if ((signal_ = takeNoted())) return Kind::Signal;
        if (waited[1].revents == 0) continue;
        bytes_.erase(0, read_);
        read_ = 0;
        char buffer[READ_BYTES];
        const ssize_t count = ::read(terminal(), buffer, sizeof buffer);
        if (count == 0) return (waited[1].revents & POLLHUP) != 0 ? Kind::HungUp : Kind::End;
        if (count < 0 && errno != EINTR && errno != EAGAIN) return Kind::HungUp;
        if (count <= 0) continue;
        bytes_.append(buffer, static_cast<std::size_t>(count));
        return Kind::Character;
    }
}

TerminalInput::Event TerminalInput::nextByte() {
    if (read_ == bytes_.size()) {
        const Event::Kind kind = fill();
        if (kind != Event::Kind::Character) return {.kind = kind, .signal = signal_};
    }
    return {.kind = Event::Kind::Character, .character = static_cast<unsigned char>(bytes_[read_++])};
}

TerminalInput::Event TerminalInput::next() {
    for (;;) {
        if (read_ < bytes_.size()) {
            wchar_t character = 0;
            std::mbstate_t state{};
            const std::size_t size = std::mbrtowc(&character, &bytes_[read_], bytes_.size() - read_, &state);
            const bool isIncomplete = size == static_cast<std::size_t>(-2);
            if (!isIncomplete) {
                const bool isWrong = size == static_cast<std::size_t>(-1);
                read_ += isWrong || size == 0 ? 1 : size;
                return {.kind = Event::Kind::Character, .character = isWrong ? REPLACEMENT : character};
            }
        }
        const Event::Kind kind = fill();
        if (kind != Event::Kind::Character) return {.kind = kind, .signal = signal_};
    }
}

}  // namespace vesk::compiler
