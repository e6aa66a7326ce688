// Temporary files, the linker's process, and its words.
#include "driver/executable.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <system_error>

#include "host/source_manager.h"

#include "semantics/installation.h"

#ifndef VESK_INSTALLED_LIBRARIES
#define VESK_INSTALLED_LIBRARIES "lib/vesk"
#endif

namespace vesk::compiler {
namespace {

constexpr const char* RUNTIME_LIBRARY = "libvesk_runtime.a";
constexpr const char* LINKED_NAME = "program";
constexpr std::size_t SHOWN_OUTPUT = 4000;

[[noreturn]] void failToWrite(const std::string& path, int reason) {
    throw ExecutableTrouble("cannot write '" + path + "': " + std::strerror(reason));
}

void writeAll(int file, std::string_view bytes, const std::string& path) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) {
            const int reason = errno;
            ::close(file);
            failToWrite(path, reason);
        }
        bytes.remove_prefix(std::size_t(written));
    }
}

void writeFile(const std::string& path, int mode, std::string_view bytes, const std::string& shownPath) {
    int file = -1;
    do file = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | mode, 0666);
    while (file < 0 && errno == EINTR);
    if (file < 0) failToWrite(shownPath, errno);
    writeAll(file, bytes, shownPath);
    if (::close(file) != 0 && errno != EINTR) failToWrite(shownPath, errno);  // interrupted, it is closed all the same
}

// The folder that holds the run-time library: named by the environment, of the installation that the program was linked
// with, or found from the command's place upward.
std::string findRuntimeFolder() {
    const auto holdsLibrary = [](const std::filesystem::path& folder) {
        std::error_code error;
        return std::filesystem::is_regular_file(folder / RUNTIME_LIBRARY, error);
    };
    if (const char* named = std::getenv("VESK_RUNTIME"); named && *named) {
        if (holdsLibrary(named)) return named;
        throw ExecutableTrouble("there is no " + std::string(RUNTIME_LIBRARY) + " in '" + named +
                                "', which VESK_RUNTIME names");
    }
    if (const std::string installed = installedArchives(); holdsLibrary(installed)) return installed;
    std::error_code error;
    std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    while (!folder.empty()) {
        for (const char* place : {"lib", "lib/vesk", VESK_INSTALLED_LIBRARIES})
            if (holdsLibrary(folder / place)) return (folder / place).native();
        if (folder == folder.parent_path()) break;
        folder = folder.parent_path();
    }
    throw ExecutableTrouble("cannot find the run-time library: set VESK_RUNTIME to the folder that holds '" +
                            std::string(RUNTIME_LIBRARY) + "'");
}

// The absolute path of a command as the shell finds it, "" when there is none.
std::string commandPath(const std::string& name) {
    const auto pathIn = [](const std::string& folder, const std::string& file) -> std::string {
        const std::string path = SourceManager::normalizePath(folder + "/" + file);
        return ::access(path.c_str(), X_OK) == 0 ? path : "";
    };
    if (name.find('/') != std::string::npos) return pathIn(name.starts_with('/') ? "" : ".", name);
    const char* path = std::getenv("PATH");
    std::istringstream folders(path ? path : "/usr/bin:/bin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (std::string found = pathIn(folder.empty() ? "." : folder, name); !found.empty()) return found;
    }
    return "";
}

bool isCommand(const std::string& name) { return !commandPath(name).empty(); }

// The words that call the linker driver.
std::vector<std::string> linkerDriver() {
    std::vector<std::string> words;
    if (const char* named = std::getenv("VESK_CC"); named && *named) {
        std::istringstream text(named);
        for (std::string word; text >> word;) words.push_back(word);
        if (!words.empty()) return words;
    }
    for (const char* name : {"cc", "gcc", "g++", "clang"}) {
        if (!isCommand(name)) continue;
        words.push_back(name);
        // The archives of the run-time library link in a third of the time.
        if (isCommand("ld.lld")) words.push_back("-fuse-ld=lld");
        return words;
    }
    throw ExecutableTrouble(
        "there is no linker: neither 'cc' nor 'gcc', 'g++' or 'clang' is installed; VESK_CC may name another");
}

// A command's output, both streams, and the status it ended with.
struct Outcome {
    std::string output;
    int status = 0;
};

[[noreturn]] void failToStart(const std::string& command, int reason) {
    const std::string text = "cannot run the linker '" + command + "': " + std::strerror(reason);
    if (reason == ENOMEM || reason == EAGAIN) throw OutOfResources("out of memory: " + text);
    throw ExecutableTrouble(text);
}

// The environment, with a folder for what is temporary: a linker that is killed leaves some of it.
std::vector<std::string> environmentWith(const std::string& temporary) {
    constexpr std::string_view NAME = "TMPDIR=";
    std::vector<std::string> all;
    for (char** each = environ; *each; each++)
        if (!std::string_view(*each).starts_with(NAME)) all.emplace_back(*each);
    all.push_back(std::string(NAME) + temporary);
    return all;
}

std::vector<char*> pointersTo(const std::vector<std::string>& words) {
    std::vector<char*> pointers;
    for (const std::string& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

// The command runs in `folder`.
Outcome runCommand(const std::vector<std::string>& words, const std::string& folder, const std::string& temporary) {
    const std::string found = commandPath(words[0]);
    const std::string& file = found.empty() ? words[0] : found;
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw ExecutableTrouble(std::string("cannot link: ") + std::strerror(errno));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
    const std::vector<std::string> variables = environmentWith(temporary);
    pid_t process = 0;
    const int reason = ::posix_spawnp(&process, file.c_str(), &actions, nullptr, pointersTo(words).data(),
                                      pointersTo(variables).data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    if (reason != 0) {
        ::close(ends[0]);
        failToStart(words[0], reason);
    }

    Outcome outcome;
    char buffer[4096];
    for (;;) {
        const ssize_t count = ::read(ends[0], buffer, sizeof buffer);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        if (outcome.output.size() < SHOWN_OUTPUT) outcome.output.append(buffer, std::size_t(count));
    }
    ::close(ends[0]);
    while (::waitpid(process, &outcome.status, 0) < 0 && errno == EINTR) {}
    return outcome;
}

std::string describe(int status) {
    if (WIFSIGNALED(status)) return std::string("was ended: ") + strsignal(WTERMSIG(status));
    return "failed with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

Executable::Executable(std::string output) : output_(std::move(output)) {
    struct stat about{};
    // Devices, too, would be replaced by a rename.
    if (::stat(output_.c_str(), &about) == 0 && !S_ISREG(about.st_mode)) {
        if (S_ISDIR(about.st_mode)) failToWrite(output_, EISDIR);
        throw ExecutableTrouble("cannot write '" + output_ + "': it is no ordinary file");
    }
    const std::string folder = std::filesystem::path(output_).parent_path().native();
    try {
        beside_ = std::make_unique<TemporaryFolder>(folder.empty() ? "." : folder);
    } catch (const std::system_error& error) {
        failToWrite(output_, error.code().value());
    }
    linked_ = beside_->path() + "/" + LINKED_NAME;
    std::error_code error;
    const std::string temporary = std::filesystem::temp_directory_path(error).native();
    try {
        if (error) throw std::system_error(error);
        objectFolder_ = std::make_unique<TemporaryFolder>(SourceManager::normalizePath(temporary));
    } catch (const std::system_error& failure) {
        throw ExecutableTrouble("cannot make a temporary folder: " + failure.code().message());
    }
}

void Executable::addObject(std::string_view bytes) {
    const std::string path = objectFolder_->path() + "/" + std::to_string(objects_.size()) + ".o";
    writeFile(path, O_CREAT | O_EXCL, bytes, path);
    objects_.push_back(path);
}

void Executable::link() {
    const std::string runtime = SourceManager::normalizePath(findRuntimeFolder());
    std::vector<std::string> words = linkerDriver();
    const std::string name = words[0];
    const auto add = [&words](const std::vector<std::string>& more) {
        words.insert(words.end(), more.begin(), more.end());
    };
    // Named without its folder: linkers read signs in a path as a pattern's.
    add({"-o", LINKED_NAME});
    add(objects_);
    // An installation holds the collector as well. `g++` names the C++ library once more, which nobody needs then.
    add({runtime + "/" + RUNTIME_LIBRARY, "-L" + runtime, "-static-libgcc", "-Wl,--as-needed", "-Wl,-Bstatic", "-lgc",
         "-lutf8proc", "-lstdc++", "-Wl,-Bdynamic", "-lm", "-lpthread", "-ldl"});
    const Outcome outcome = runCommand(words, beside_->path(), objectFolder_->path());
    if (outcome.status == 0) return;
    std::string text = "the linker '" + name + "' " + describe(outcome.status);
    if (!outcome.output.empty()) text += ":\n" + outcome.output;
    while (text.ends_with('\n')) text.pop_back();
    throw LinkFailure(text);
}

void Executable::append(std::string_view bytes) { writeFile(linked_, O_CREAT | O_APPEND, bytes, output_); }

void Executable::publish() {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    if (::chmod(linked_.c_str(), 0777 & ~mask) != 0) failToWrite(output_, errno);
    if (::rename(linked_.c_str(), output_.c_str()) != 0) failToWrite(output_, errno);
}

}  // namespace vesk::compiler
