// An interactive session: its prompt, its commands, and what it says about mistakes.
#include "driver/repl.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <map>

#include "driver/diagnostic_renderer.h"
#include "driver/program_sources.h"
#include "driver/repl_build.h"
#include "driver/repl_input.h"
#include "driver/terminal_input.h"
#include "driver/terminal_lines.h"
#include "host/source_manager.h"
#include "il/interruption.h"
#include "il/shown_text.h"

namespace vesk::compiler {
namespace {

constexpr std::size_t MOST_DIAGNOSTICS = 20;
constexpr std::size_t MOST_CHUNKS_NAMED = 5;
constexpr const char* HELP =
    ":type EXPRESSION    the type of an expression, which is not evaluated\n"
    ":load FILE          enters a file as one chunk; a file with a package line is imported\n"
    ":specializations    what generic functions and methods have been compiled for\n"
    ":quit               ends the session\n";

std::string workingFolder() {
    std::error_code ignored;
    return std::filesystem::current_path(ignored).string();
}

std::optional<std::string> lineOfInput(bool) {
    std::string line;
    if (!std::getline(std::cin, line)) return std::nullopt;
    return line;
}

// What it reads at a terminal or from elsewhere.
ChunkReader chunkReader(bool isTerminal) {
    if (!isTerminal) return {lineOfInput, false};
    auto lines = std::make_shared<TerminalLines>();
    auto isPasteUnderWay = std::make_shared<bool>(false);
    return {[=](bool isFirst) -> std::optional<std::string> {
                const TerminalLines::Line line = lines->read(isFirst ? "> " : ". ");
                if (line.kind == TerminalLines::Line::Kind::Dropped) throw LinesDropped();
                *isPasteUnderWay = line.isPasteUnderWay;
                if (line.kind == TerminalLines::Line::Kind::End) return std::nullopt;
                return line.text;
            },
            [=] { return !*isPasteUnderWay; }};
}

// Of a session at a terminal, on its thread. The other ones leave the signals to it.
void prepareForTerminal(const sigset_t& signals) {
    watchForInterruption(SIGINT);
    ::signal(SIGXFSZ, SIG_IGN);  // a history that cannot grow is a matter of a warning
    ::pthread_sigmask(SIG_SETMASK, &signals, nullptr);
}

class Repl {
public:
    Repl(const CommandLine& line, bool useColor, bool isTerminal)
        : line_(line),
          isTerminal_(isTerminal),
          session_(sessionOptions()),
          scope_(session_),
          renderer_({useColor, workingFolder(), &session_.types(), line.allNotes,
                     [this](const std::string& text) { return withoutChunkPackages(session_, text); }}),
          build_(session_, trace_, static_cast<OptimizationLevel>(line.optimization)) {}

    int run();

private:
    SessionOptions sessionOptions() const;
    void converse();
    bool answer(const std::string& text);
    void enter(const std::string& text, const std::string& folder);
    bool command(const std::string& text);
    void showType(const std::string& expression);
    void load(const std::string& path);
    void importFile(const std::string& path, const std::string& package);
    void showSpecializations() const;
    void report();
    void warnOfCache();
    void writeFigures() const;

    const CommandLine& line_;
    const bool isTerminal_;
    std::shared_ptr<CacheTrouble> cacheTrouble_ = std::make_shared<CacheTrouble>();
    bool hasWarnedOfCache_ = false;
    CompileSession session_;
    ScopedCompileSession scope_;
    DiagnosticRenderer renderer_;
    TimeTrace trace_;
    ChunkBuild build_;
};

// What chunks make generic code for must not reach later sessions, in which their names mean something else.
SessionOptions Repl::sessionOptions() const {
    SessionOptions options;
    options.sourceRoots.push_back(SourceManager::normalizePath("."));
    for (const std::string& path : line_.sourcePaths) options.sourceRoots.push_back(SourceManager::normalizePath(path));
    options.cacheDirectory = line_.cacheDirectory;
    options.cache = line_.cache == CacheMode::Off ? CacheMode::Off : CacheMode::Memory;
    options.cacheTrouble = cacheTrouble_;
    options.isOptimized = line_.optimization > 0;
    options.programRoot = options.sourceRoots.front();
    return options;
}

int Repl::run() {
    const bool hasLibrary = session_.classNamed("vesk.Object") != nullptr;
    if (const auto found = takeUnreadable(session_))
        throw UnreadableInput("cannot read '" + renderer_.displayPath(found->path) + "': " + found->reason);
    if (!hasLibrary)
        throw UnreadableInput("cannot find the standard library: set VESK_STDLIB to the folder that holds 'vesk/'");
    if (isTerminal_) std::cout << "vesk, interactive; :help lists the commands\n" << std::flush;
    session_.cache();
    warnOfCache();
    converse();
    if (isTerminal_) std::cout << "\n";
    if (!line_.timeTrace.empty() && !trace_.write(line_.timeTrace)) {
        std::cerr << "veskc: cannot write '" << withControlsShown(line_.timeTrace) << "'\n";
        return 2;
    }
    if (line_.stats) writeFigures();
    return 0;
}

// Until the input or the user says that it is over.
void Repl::converse() {
    ChunkReader reader = chunkReader(isTerminal_);
    for (;;) {
        try {
            const std::optional<std::string> text = reader.next();
            if (!text || !answer(*text)) return;
        } catch (const LinesDropped&) {}
        warnOfCache();
    }
}

void Repl::warnOfCache() {
    if (hasWarnedOfCache_ || !cacheTrouble_->isThere()) return;
    hasWarnedOfCache_ = true;
    std::cerr << "veskc: warning: " << withControlsShown(cacheTrouble_->text()) << "\n";
}

// False when the session ends. Trouble of the compiler's own ends the chunk, not the session.
bool Repl::answer(const std::string& text) {
    try {
        if (text[0] == ':') return command(text);
        enter(text, "");
    } catch (const Interrupted& interruption) {
        takeDiagnostics(session_);
        std::cerr << interruption.what() << "\n";
    } catch (const std::exception& error) {
        report();
        std::cerr << "veskc: internal failure: " << error.what() << "\n";
    }
    return true;
}

void Repl::enter(const std::string& text, const std::string& folder) {
    const bool isMistaken = build_.enter(text, folder) == ChunkBuild::Outcome::Mistaken;
    if (!isMistaken && !session_.unreadable()) return;
    if (!session_.hasErrors() && !session_.unreadable())
        std::cerr << "error: the chunk uses something that has mistakes\n";
    report();
}

// Of several complaints about what cannot be read, the system's words say most.
void Repl::report() {
    if (const auto found = takeUnreadable(session_))
        std::cerr << "error: cannot read '" << renderer_.shownPath(found->path) << "': " << found->reason << "\n";
    const std::vector<CompilerException> all = takeDiagnostics(session_);
    for (std::size_t i = 0; i < std::min(all.size(), MOST_DIAGNOSTICS); i++) {
        const bool asJson = line_.diagnostics == DiagnosticForm::Json;
        std::cerr << (asJson ? renderer_.json(all[i]) : renderer_.text(all[i]));
    }
    if (all.size() > MOST_DIAGNOSTICS) std::cerr << "veskc: " << all.size() - MOST_DIAGNOSTICS << " more errors\n";
}

// ------------------------------------------------------------------------------------------------- commands

bool Repl::command(const std::string& text) {
    const std::size_t end = std::min(text.find_first_of(" \t"), text.size());
    const std::string name = text.substr(0, end);
    const std::size_t begin = std::min(text.find_first_not_of(" \t", end), text.size());
    const std::string rest = text.substr(begin, text.find_last_not_of(" \t") + 1 - begin);
    const bool takesArgument = name == ":type" || name == ":load";
    const bool isKnown = takesArgument || name == ":specializations" || name == ":help" || name == ":quit";
    if (!isKnown) {
        std::cerr << "error: unknown command '" << withControlsShown(name)
                  << "'; there are :type, :load, :specializations, :help and :quit\n";
    } else if (takesArgument == rest.empty()) {
        std::cerr << "error: " << name << (takesArgument ? " needs " : " takes no argument")
                  << (!takesArgument    ? ""
                      : name == ":type" ? "an expression"
                                        : "a file")
                  << "\n";
    } else if (name == ":quit") {
        return false;
    } else if (name == ":help") {
        std::cout << HELP << std::flush;
    } else if (name == ":type") {
        showType(rest);
    } else if (name == ":load") {
        load(rest);
    } else {
        showSpecializations();
    }
    return true;
}

void Repl::showType(const std::string& expression) {
    const Type* type = build_.typeOf(expression);
    if (type) std::cout << withoutChunkPackages(session_, type->structured) << "\n" << std::flush;
    report();
}

void Repl::load(const std::string& path) {
    std::string file, text, package;
    try {
        std::error_code ignored;
        if (std::filesystem::is_directory(path, ignored)) throw UnreadableInput("'" + path + "' is a folder");
        file = findProgramSources({path}).files.at(0);
        UnreadReason reason;
        const auto source = SourceManager::contents(file, reason);
        if (!source) throw UnreadableInput("cannot read '" + path + "': " + reason.text);
        text = *source;
        package = packageOfText(text, file);
    } catch (const UnreadableInput& error) {
        std::cerr << "error: " << withControlsShown(error.what()) << "\n";
        takeUnreadable(session_);
        return;
    }
    if (package.empty())
        enter(text, file);
    else
        importFile(file, package);
}

// A file of a package stays what it is: its unit is compiled when something in it is used.
void Repl::importFile(const std::string& path, const std::string& package) {
    if (session_.loadedFile(path)) {
        std::cerr << "error: '" << renderer_.shownPath(path)
                  << "' is loaded already; a new session would read it again\n";
        return;
    }
    addSourceRoot(session_, findProgramSources({path}).roots.front());
    FileDeclaration* file = session_.loadFile(path);
    if (file) session_.checkDeclarations(*file);
    if (!session_.hasErrors()) importForChunks(session_, package);
    report();
}

void Repl::showSpecializations() const {
    for (const ChunkBuild::Specialization& each : build_.specializations()) {
        std::cout << each.text << "  made in " << each.chunk;
        for (std::size_t i = 0; i < std::min(each.again.size(), MOST_CHUNKS_NAMED); i++)
            std::cout << (i ? ", " : ", again in ") << each.again[i];
        if (each.again.size() > MOST_CHUNKS_NAMED)
            std::cout << " and " << each.again.size() - MOST_CHUNKS_NAMED << " more";
        std::cout << "\n";
    }
    std::cout << std::flush;
}

void Repl::writeFigures() const {
    std::size_t again = 0;
    for (const ChunkBuild::Specialization& each : build_.specializations()) again += each.again.size();
    std::cerr << "chunks: " << build_.chunkCount() << "\nspecializations: " << build_.specializations().size()
              << "\nregistered again: " << again << "\n";
    std::map<std::string, std::chrono::microseconds> stages;
    for (const TimeTrace::Stage& stage : trace_.stages())
        stages[stage.name] += std::chrono::duration_cast<std::chrono::microseconds>(stage.end - stage.begin);
    for (const auto& [name, time] : stages) std::cerr << name << ": " << time.count() << " us\n";
}

}  // namespace

int runRepl(const CommandLine& line, bool useColor) {
    const bool isTerminal = ::isatty(STDIN_FILENO) == 1;
    sigset_t signals;
    if (isTerminal) blockTerminalSignals(signals);
    // Like a program's session: the process ends without taking it apart.
    int status = 0;
    Jit::runSession([&] {
        if (isTerminal) prepareForTerminal(signals);
        status = (new Repl(line, useColor, isTerminal))->run();
    });
    return status;
}

}  // namespace vesk::compiler
