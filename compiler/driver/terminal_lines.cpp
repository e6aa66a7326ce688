// The editor and what stands in for it.
// A paste is recognised by the marks that terminals put around it. It is read whole and handed to the editor line by line:
// what follows a line end waits for the next call, where a private key brings it up.
#include "driver/terminal_lines.h"

#include <histedit.h>
#include <locale.h>
#include <termios.h>
#include <unistd.h>

#include <climits>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <deque>
#include <iostream>

#include "driver/terminal_input.h"
#include "il/shown_text.h"

// Of the terminal database, whose headers define many short names as macros.
extern "C" int tgetent(char* entry, const char* name);

namespace vesk::compiler {
namespace {

constexpr int HISTORY_LINES = 2000;
constexpr int INDENTATION = 4;
constexpr wchar_t MOVE_TO_END = 0x05;  // Ctrl-E
constexpr const wchar_t* PASTE_BEGINS = L"\x1B[200~";
constexpr const wchar_t* PASTE_ENDS = L"\x1B[201~";
constexpr const char* PASTE_MARKS_ON = "\x1B[?2004h";
constexpr const char* PASTE_MARKS_OFF = "\x1B[?2004l";

using Line = TerminalLines::Line;

void show(const char* text) {
    std::fputs(text, stdout);
    std::fflush(stdout);
}

// The settings a terminal had when the object was made.
class TerminalSettings {
public:
    TerminalSettings() { isKnown_ = ::tcgetattr(STDIN_FILENO, &settings_) == 0; }
    // A process in the background would be stopped for this; one that ends must end.
    void restore() const {
        if (!isKnown_) return;
        sigset_t set, previous;
        sigemptyset(&set);
        sigaddset(&set, SIGTTOU);
        ::pthread_sigmask(SIG_BLOCK, &set, &previous);
        ::tcsetattr(STDIN_FILENO, TCSANOW, &settings_);
        ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    }
    // Erasing takes whole characters.
    void setUtf8() const {
        termios changed = settings_;
        changed.c_iflag |= IUTF8;
        if (isKnown_) ::tcsetattr(STDIN_FILENO, TCSANOW, &changed);
    }

private:
    termios settings_{};
    bool isKnown_ = false;
};

bool takesUtf8() {
    for (const char* name : {"C.UTF-8", "C.utf8", "", "en_US.UTF-8"}) {
        if (std::setlocale(LC_CTYPE, name) && MB_CUR_MAX > 1) return true;
    }
    return false;
}

bool canEdit() {
    const char* name = std::getenv("TERM");
    if (!name || !*name || std::strcmp(name, "dumb") == 0 || std::strcmp(name, "emacs") == 0) return false;
    return ::isatty(STDOUT_FILENO) == 1 && takesUtf8() && ::tgetent(nullptr, name) == 1;
}

std::string utf8(const wchar_t* text, std::size_t size) {
    std::string bytes;
    std::mbstate_t state{};
    char buffer[MB_LEN_MAX];
    for (std::size_t i = 0; i < size; i++) {
        const std::size_t count = std::wcrtomb(buffer, text[i], &state);
        if (count != static_cast<std::size_t>(-1)) bytes.append(buffer, count);
    }
    return bytes;
}

std::wstring wide(const std::string& text) {
    std::wstring characters;
    std::mbstate_t state{};
    for (std::size_t at = 0; at < text.size();) {
        wchar_t character = 0;
        const std::size_t size = std::mbrtowc(&character, &text[at], text.size() - at, &state);
        const bool isWrong = size == 0 || size > text.size();
        characters += isWrong ? wchar_t{0xFFFD} : character;
        at += isWrong ? 1 : size;
        if (isWrong) state = {};
    }
    return characters;
}

}  // namespace

class TerminalLines::Reader {
public:
    virtual ~Reader() = default;
    // A line of the history, for Line Up.
    virtual void remember(const std::string&) {}
    virtual Line read(const std::string& prompt) = 0;
};

// ------------------------------------------------------------------------------- the terminal's own line editing

class TerminalLines::PlainReader final : public TerminalLines::Reader {
public:
    Line read(const std::string& prompt) override;

private:
    Line taken(Line::Kind kind) {
        Line line{kind, kind == Line::Kind::Typed ? text_ : "", false};
        text_.clear();
        return line;
    }
    // Output that goes elsewhere is not the place for a prompt.
    static void showPrompt(const std::string& prompt) {
        std::FILE* to = ::isatty(STDOUT_FILENO) == 1 ? stdout : stderr;
        std::fputs(prompt.c_str(), to);
        std::fflush(to);
    }

    TerminalInput input_;
    std::string text_;
    bool isHungUp_ = false;
};

Line TerminalLines::PlainReader::read(const std::string& prompt) {
    using Kind = TerminalInput::Event::Kind;
    if (isHungUp_) return taken(Line::Kind::End);
    ScopedTerminalSignals signals;
    TerminalSettings settings;
    settings.setUtf8();
    showPrompt(prompt);
    for (;;) {
        const TerminalInput::Event event = input_.nextByte();
        if (event.kind == Kind::Character) {
            if (event.character != '\n') {
                text_ += static_cast<char>(event.character);
                continue;
            }
            settings.restore();
            return taken(Line::Kind::Typed);
        }
        if (event.kind == Kind::End && !text_.empty()) continue;  // Ctrl-D behind text hands it over, no more
        if (event.kind == Kind::Signal && event.signal == SIGWINCH) continue;
        if (event.kind == Kind::Signal && event.signal == SIGCONT) {
            showPrompt(prompt);
            continue;
        }
        settings.restore();
        if (event.kind == Kind::End) return taken(Line::Kind::End);
        isHungUp_ = event.kind == Kind::HungUp;
        if (isHungUp_) return taken(Line::Kind::Dropped);
        if (event.signal == SIGINT) {
            input_.drop();
            showPrompt("\n");
            return taken(Line::Kind::Dropped);
        }
        signals.actUpon(event.signal);
        settings = TerminalSettings();
        settings.setUtf8();
    }
}

// --------------------------------------------------------------------------------------------------- the editor

class TerminalLines::EditingReader final : public TerminalLines::Reader {
public:
    EditingReader();
    ~EditingReader() override;
    EditingReader(const EditingReader&) = delete;
    EditingReader& operator=(const EditingReader&) = delete;
    void remember(const std::string& line) override;
    Line read(const std::string& prompt) override;

private:
    static EditingReader& of(EditLine* editor);
    static wchar_t* promptOf(EditLine* editor) { return of(editor).prompt_.data(); }
    static int readKey(EditLine* editor, wchar_t* character) { return of(editor).nextKey(*character); }
    static unsigned char onPaste(EditLine* editor, wint_t) { return of(editor).paste(); }
    static unsigned char onTab(EditLine* editor, wint_t) { return of(editor).indent(); }
    static unsigned char onNothing(EditLine*, wint_t) { return CC_NORM; }

    void bindKeys();
    void bind(const wchar_t* key, const wchar_t* function) { ::el_wset(editor_, EL_BIND, key, function, nullptr); }
    int nextKey(wchar_t& character);
    int nextTyped(wchar_t& character);
    void onSignal(int signal);
    void redraw();
    void markPastes(bool areMarked);
    void endEditing();
    unsigned char paste();
    bool readPaste();
    void insertPasted();
    unsigned char indent();

    EditLine* editor_ = nullptr;
    HistoryW* lines_ = nullptr;
    TerminalInput input_;
    std::unique_ptr<TerminalSettings> settings_;      // while a line is read
    std::unique_ptr<ScopedTerminalSignals> signals_;  // likewise
    std::wstring prompt_;
    Line::Kind outcome_ = Line::Kind::Typed;
    bool isHungUp_ = false, isDropping_ = false, areMarked_ = false;
    std::deque<wchar_t> keys_;  // as if they were typed
    std::wstring pasted_;       // not inserted yet
    std::size_t inserted_ = 0;  // of it
};

TerminalLines::EditingReader& TerminalLines::EditingReader::of(EditLine* editor) {
    void* reader = nullptr;
    ::el_wget(editor, EL_CLIENTDATA, &reader);
    return *static_cast<EditingReader*>(reader);
}

TerminalLines::EditingReader::EditingReader() {
    const TerminalSettings before;
    editor_ = ::el_init("veskc", stdin, stdout, stderr);
    before.restore();  // it has set what it takes for usual
    lines_ = ::history_winit();
    HistEventW event;
    ::history_w(lines_, &event, H_SETSIZE, HISTORY_LINES);
    ::history_w(lines_, &event, H_SETUNIQUE, 1);
    ::el_wset(editor_, EL_CLIENTDATA, this);
    ::el_wset(editor_, EL_SIGNAL, 0);
    ::el_wset(editor_, EL_EDITOR, L"emacs");
    ::el_wset(editor_, EL_PROMPT, promptOf);
    ::el_wset(editor_, EL_GETCFN, readKey);
    ::el_wset(editor_, EL_HIST, ::history_w, lines_);
    bindKeys();
}

TerminalLines::EditingReader::~EditingReader() {
    ::history_wend(lines_);
    ::el_end(editor_);
}

void TerminalLines::EditingReader::bindKeys() {
    ::el_wset(editor_, EL_ADDFN, L"vesk-paste", L"Insert what is pasted", onPaste);
    ::el_wset(editor_, EL_ADDFN, L"vesk-indent", L"Insert blanks", onTab);
    ::el_wset(editor_, EL_ADDFN, L"vesk-nothing", L"Do nothing", onNothing);
    bind(L"\\e[200~", L"vesk-paste");
    bind(L"\\e[201~", L"vesk-nothing");
    bind(L"\\t", L"vesk-indent");
    bind(L"^r", L"em-inc-search-prev");
    bind(L"^w", L"ed-delete-prev-word");
    for (const wchar_t* key : {L"\\e[1~", L"\\e[7~", L"\\e[H", L"\\eOH"}) bind(key, L"ed-move-to-beg");
    for (const wchar_t* key : {L"\\e[4~", L"\\e[8~", L"\\e[F", L"\\eOF"}) bind(key, L"ed-move-to-end");
    bind(L"\\e[3~", L"ed-delete-next-char");
    bind(L"\\e[1;5C", L"em-next-word");
    bind(L"\\e[1;5D", L"ed-prev-word");
}

void TerminalLines::EditingReader::remember(const std::string& line) {
    HistEventW event;
    ::history_w(lines_, &event, H_ENTER, wide(line).c_str());
}

// Behind the prompt, and taken back before the line's end is shown.
void TerminalLines::EditingReader::markPastes(bool areMarked) {
    if (areMarked_ != areMarked) show(areMarked ? PASTE_MARKS_ON : PASTE_MARKS_OFF);
    areMarked_ = areMarked;
}

void TerminalLines::EditingReader::endEditing() {
    markPastes(false);
    ::el_wset(editor_, EL_PREP_TERM, 0);
    settings_->restore();
}

Line TerminalLines::EditingReader::read(const std::string& prompt) {
    if (isHungUp_) return {Line::Kind::End, ""};
    prompt_ = wide(prompt);
    outcome_ = Line::Kind::Typed;
    signals_ = std::make_unique<ScopedTerminalSignals>();
    settings_ = std::make_unique<TerminalSettings>();
    // Before the prompt is shown: what is typed then must not be shown by the terminal as well.
    ::el_wset(editor_, EL_PREP_TERM, 1);
    int size = 0;
    const wchar_t* text = ::el_wgets(editor_, &size);
    std::wstring line(text ? text : L"", text && size > 0 ? static_cast<std::size_t>(size) : 0);
    if (!text || size <= 0) outcome_ = outcome_ == Line::Kind::Typed ? Line::Kind::End : outcome_;
    if (outcome_ != Line::Kind::Typed) ::el_reset(editor_);
    endEditing();
    signals_.reset();
    settings_.reset();
    if (outcome_ != Line::Kind::Typed) return {outcome_, ""};
    while (!line.empty() && (line.back() == L'\n' || line.back() == L'\r')) line.pop_back();
    return {Line::Kind::Typed, utf8(line.data(), line.size()), inserted_ < pasted_.size()};
}

// What the editor asks for: 1 with a character, 0 at the end, -1 when the line is given up.
int TerminalLines::EditingReader::nextKey(wchar_t& character) {
    if (isDropping_) {
        markPastes(false);
        show("^C\n");
        isDropping_ = false;
        outcome_ = Line::Kind::Dropped;
        return -1;
    }
    if (keys_.empty()) {
        if (const int answer = nextTyped(character); answer != 1) return answer;
    } else {
        character = keys_.front();
        keys_.pop_front();
    }
    if (character == L'\n' || character == L'\r') markPastes(false);
    return 1;
}

int TerminalLines::EditingReader::nextTyped(wchar_t& character) {
    for (;;) {
        markPastes(true);
        const TerminalInput::Event event = input_.next();
        switch (event.kind) {
            case TerminalInput::Event::Kind::Character: character = event.character; return 1;
            case TerminalInput::Event::Kind::End: outcome_ = Line::Kind::End; return 0;
            case TerminalInput::Event::Kind::HungUp:
                // What was begun is not meant to be answered any more.
                outcome_ = Line::Kind::Dropped;
                isHungUp_ = true;
                return -1;
            case TerminalInput::Event::Kind::Signal:
                onSignal(event.signal);
                if (!isDropping_) break;
                character = MOVE_TO_END;
                return 1;
        }
    }
}

void TerminalLines::EditingReader::onSignal(int signal) {
    switch (signal) {
        case SIGINT:
            // First the cursor goes to the line's end, so that nothing of it is written over.
            isDropping_ = true;
            input_.drop();
            keys_.clear();
            pasted_.clear();
            inserted_ = 0;
            return;
        case SIGWINCH: ::el_resize(editor_); return redraw();
        case SIGCONT: ::el_wset(editor_, EL_PREP_TERM, 0); break;
        default:
            endEditing();
            show("\n");
            signals_->actUpon(signal);
            // Only a process that was stopped comes back; it may find other settings.
            *settings_ = TerminalSettings();
    }
    ::el_wset(editor_, EL_PREP_TERM, 1);
    redraw();
}

void TerminalLines::EditingReader::redraw() {
    show("\r\x1B[J");
    ::el_wset(editor_, EL_REFRESH);
}

// ----------------------------------------------------------------------------------------------------- pastes

unsigned char TerminalLines::EditingReader::paste() {
    if (inserted_ == pasted_.size() && !readPaste()) return isDropping_ ? CC_NORM : CC_EOF;
    insertPasted();
    return CC_REFRESH;
}

// Up to the mark at its end. Terminals send line ends as the key does.
bool TerminalLines::EditingReader::readPaste() {
    const std::wstring end = PASTE_ENDS;
    pasted_.clear();
    inserted_ = 0;
    std::wstring read;
    while (!read.ends_with(end)) {
        wchar_t character = 0;
        if (nextTyped(character) != 1 || isDropping_) return false;
        read += character;
    }
    read.resize(read.size() - end.size());
    for (std::size_t i = 0; i < read.size(); i++) {
        const wchar_t character = read[i];
        if (character == L'\r')
            pasted_ += L'\n';
        else if (character == L'\n' && i > 0 && read[i - 1] == L'\r')
            continue;
        else if (character == L'\n' || character == L'\t' || (character >= L' ' && character != 0x7F))
            pasted_ += character;
    }
    return true;
}

void TerminalLines::EditingReader::insertPasted() {
    const std::size_t end = std::min(pasted_.find(L'\n', inserted_), pasted_.size());
    if (end > inserted_) ::el_winsertstr(editor_, pasted_.substr(inserted_, end - inserted_).c_str());
    inserted_ = std::min(end + 1, pasted_.size());
    if (end == pasted_.size()) return;
    keys_.push_back(L'\n');
    if (inserted_ < pasted_.size()) keys_.insert(keys_.end(), PASTE_BEGINS, PASTE_BEGINS + std::wcslen(PASTE_BEGINS));
}

// To the next multiple of the indentation.
unsigned char TerminalLines::EditingReader::indent() {
    const LineInfoW* line = ::el_wline(editor_);
    const auto column = static_cast<std::size_t>(line->cursor - line->buffer);
    const std::wstring blanks(INDENTATION - column % INDENTATION, L' ');
    ::el_winsertstr(editor_, blanks.c_str());
    return CC_REFRESH;
}

TerminalLines::TerminalLines() {
    if (canEdit())
        reader_ = std::make_unique<EditingReader>();
    else
        reader_ = std::make_unique<PlainReader>();
    for (const std::string& line : history_.load()) reader_->remember(line);
    warnOfHistory();
}

TerminalLines::~TerminalLines() = default;

Line TerminalLines::read(const std::string& prompt) {
    Line line = reader_->read(prompt);
    if (line.kind == Line::Kind::Typed && line.text.find_first_not_of(" \t") != std::string::npos) {
        reader_->remember(line.text);
        history_.add(line.text);
        warnOfHistory();
    }
    return line;
}

void TerminalLines::warnOfHistory() {
    if (const std::string trouble = history_.takeTrouble(); !trouble.empty())
        std::cerr << "veskc: warning: no history is kept: " << withControlsShown(trouble) << "\n";
}

}  // namespace vesk::compiler
