// Preloaded into a program: makes the N-th call of one kind fail, so that a test can ask what happens then.
//   LD_PRELOAD=.../libvesk_failing_calls.so
//   VESK_FAULT_FOLDERS   absolute folders, joined by ":"; only files below them count (calls that are not about a file always do)
//   VESK_FAULT_COUNTS    a file that receives how many calls of each kind there were: one 64-bit number per kind
//   VESK_FAULT_CALL      the kind that fails: open read write close rename flock mkdir stat list unlink chmod pipe spawn wait
//                        map protect unmap advise remap thread
//   VESK_FAULT_AT        which of them, from 1
//   VESK_FAULT_HOW       the error's name (EIO), "short" (a read or write of one byte), "kill" (SIGKILL in its place; of a
//                        write, the first half has happened by then) or "delete" (VESK_FAULT_DELETED and all that it holds
//                        is removed before it)
//   VESK_FAULT_ON        "1": that call and all that follow
//   VESK_FAULT_LOG       a file that receives one line per call: kind, number, what it is about
// Calls reach the system directly; nothing here allocates, since the allocator's own calls come through here, too.
// Programs that the program starts run without it.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

enum Kind {
    Open,
    Read,
    Write,
    Close,
    Rename,
    Flock,
    Mkdir,
    Stat,
    List,
    Unlink,
    Chmod,
    Pipe,
    Spawn,
    Wait,
    Map,
    Protect,
    Unmap,
    Advise,
    Remap,
    Thread,
    KIND_COUNT
};
constexpr const char* KIND_NAMES[KIND_COUNT] = {"open", "read",    "write",  "close",  "rename", "flock", "mkdir",
                                                "stat", "list",    "unlink", "chmod",  "pipe",   "spawn", "wait",
                                                "map",  "protect", "unmap",  "advise", "remap",  "thread"};

struct ErrorName {
    const char* name;
    int number;
};
constexpr ErrorName ERRORS[] = {{"EIO", EIO},       {"ENOSPC", ENOSPC}, {"EACCES", EACCES}, {"EMFILE", EMFILE},
                                {"EINTR", EINTR},   {"ENOMEM", ENOMEM}, {"EROFS", EROFS},   {"EDQUOT", EDQUOT},
                                {"ENOLCK", ENOLCK}, {"ENOENT", ENOENT}, {"EAGAIN", EAGAIN}, {"ELOOP", ELOOP},
                                {"ENOSYS", ENOSYS}};

enum class How { Nothing, Error, Short, Kill, Delete };

struct Plan {
    const char* folders = nullptr;
    const char* deleted = nullptr;
    std::atomic<std::uint64_t>* counts = nullptr;
    int log = -1;
    int kind = -1;
    std::uint64_t at = 0;
    bool goesOn = false;
    How how = How::Nothing;
    int error = 0;
};
Plan gPlan;
bool gIsReady = false;

int readNumber(const char* text) { return text ? std::atoi(text) : 0; }

__attribute__((constructor)) void start() {
    gPlan.folders = getenv("VESK_FAULT_FOLDERS");
    gPlan.deleted = getenv("VESK_FAULT_DELETED");
    if (const char* counts = getenv("VESK_FAULT_COUNTS")) {
        const int file = int(syscall(SYS_openat, AT_FDCWD, counts, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
        if (file >= 0 && syscall(SYS_ftruncate, file, sizeof(std::uint64_t) * KIND_COUNT) == 0) {
            const long room = syscall(SYS_mmap, nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
            if (room > 0) gPlan.counts = reinterpret_cast<std::atomic<std::uint64_t>*>(room);
        }
    }
    if (const char* log = getenv("VESK_FAULT_LOG"))
        gPlan.log = int(syscall(SYS_openat, AT_FDCWD, log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    if (const char* call = getenv("VESK_FAULT_CALL")) {
        for (int kind = 0; kind < KIND_COUNT; kind++)
            if (std::strcmp(call, KIND_NAMES[kind]) == 0) gPlan.kind = kind;
    }
    gPlan.at = std::uint64_t(readNumber(getenv("VESK_FAULT_AT")));
    gPlan.goesOn = readNumber(getenv("VESK_FAULT_ON")) == 1;
    if (const char* how = getenv("VESK_FAULT_HOW")) {
        if (std::strcmp(how, "short") == 0) gPlan.how = How::Short;
        if (std::strcmp(how, "kill") == 0) gPlan.how = How::Kill;
        if (std::strcmp(how, "delete") == 0) gPlan.how = How::Delete;
        for (const ErrorName& each : ERRORS) {
            if (std::strcmp(how, each.name) != 0) continue;
            gPlan.how = How::Error;
            gPlan.error = each.number;
        }
    }
    unsetenv("LD_PRELOAD");
    gIsReady = gPlan.counts != nullptr;
}

bool isBelow(const char* path) {
    for (const char* folder = gPlan.folders; folder && *folder;) {
        const char* end = strchrnul(folder, ':');
        const std::size_t length = std::size_t(end - folder);
        if (std::strncmp(path, folder, length) == 0 && (path[length] == '/' || path[length] == 0)) return true;
        folder = *end ? end + 1 : end;
    }
    return false;
}

void appendText(char* buffer, std::size_t size, const char* text) {
    const std::size_t length = std::strlen(buffer);
    std::snprintf(buffer + length, size - length, "%s", text);
}

// The path of an open file or of the working folder (AT_FDCWD), "" when there is none.
void pathOfDescriptor(int descriptor, char* buffer, std::size_t size) {
    char link[40];
    if (descriptor == AT_FDCWD)
        std::snprintf(link, sizeof link, "/proc/self/cwd");
    else
        std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    const long length = syscall(SYS_readlinkat, AT_FDCWD, link, buffer, size - 1);
    buffer[length > 0 ? length : 0] = 0;
}

// What a call is about, as an absolute path.
struct Subject {
    char path[2 * PATH_MAX];
    explicit Subject(int descriptor) { pathOfDescriptor(descriptor, path, sizeof path); }
    Subject(int folder, const char* name) {
        path[0] = 0;
        if (name && name[0] == '/') {
            appendText(path, sizeof path, name);
            return;
        }
        pathOfDescriptor(folder, path, PATH_MAX);
        if (!name || !*name) return;
        appendText(path, sizeof path, "/");
        appendText(path, sizeof path, name);
    }
};

template <class Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// As somebody does who removes a cache while it is in use.
void deleteFolder() {
    if (!gPlan.deleted) return;
    char command[] = "rm", option[] = "-rf", *none = nullptr;
    char* words[] = {command, option, const_cast<char*>(gPlan.deleted), nullptr};
    pid_t process = 0;
    const auto spawn = next<decltype(&posix_spawn)>("posix_spawn");
    if (spawn(&process, "/bin/rm", nullptr, nullptr, words, &none) == 0)
        syscall(SYS_wait4, process, nullptr, 0, nullptr);
}

// Counts a call; whether it is one that is to fail.
bool isChosen(Kind kind, const char* about) {
    const std::uint64_t number = gPlan.counts[kind].fetch_add(1) + 1;
    if (gPlan.log >= 0) {
        char line[2 * PATH_MAX + 60];
        std::snprintf(line, sizeof line, "%s %llu %s\n", KIND_NAMES[kind], static_cast<unsigned long long>(number),
                      about);
        syscall(SYS_write, gPlan.log, line, std::strlen(line));
    }
    const bool isIt = kind == gPlan.kind && (number == gPlan.at || (gPlan.goesOn && number > gPlan.at));
    if (isIt && gPlan.how == How::Delete) {
        const int reason = errno;
        deleteFolder();
        errno = reason;
        return false;
    }
    return isIt && gPlan.how != How::Nothing;
}

void endBySignal() {
    syscall(SYS_kill, syscall(SYS_getpid), SIGKILL);
    for (;;) syscall(SYS_pause);
}

// True when the call fails with errno set.
bool failsHere(Kind kind, const char* about) {
    if (!isChosen(kind, about)) return false;
    if (gPlan.how == How::Kill) endBySignal();
    if (gPlan.how != How::Error) return false;
    errno = gPlan.error;
    return true;
}

bool fails(Kind kind, const Subject& subject) {
    return gIsReady && isBelow(subject.path) && failsHere(kind, subject.path);
}
bool fails(Kind kind, int folder, const char* name) { return gIsReady && fails(kind, Subject(folder, name)); }

int openAt(int folder, const char* name, int flags, mode_t mode) {
    if (fails(Open, folder, name)) return -1;
    return int(syscall(SYS_openat, folder, name, flags, mode));
}

mode_t modeOf(int flags, va_list& rest) { return (flags & (O_CREAT | __O_TMPFILE)) ? va_arg(rest, mode_t) : 0; }

// How many bytes of a transfer take place: all, one, or none with errno set.
enum class Transfer { Whole, OneByte, None };
Transfer transferOf(Kind kind, int descriptor, const void* data, std::size_t size) {
    if (!gIsReady) return Transfer::Whole;
    const Subject subject(descriptor);
    if (!isBelow(subject.path) || !isChosen(kind, subject.path)) return Transfer::Whole;
    if (gPlan.how == How::Kill) {
        if (kind == Write && data) syscall(SYS_write, descriptor, data, size / 2);
        endBySignal();
    }
    if (gPlan.how == How::Short) return size > 0 ? Transfer::OneByte : Transfer::Whole;
    errno = gPlan.error;
    return Transfer::None;
}

int statAt(int folder, const char* name, void* about, int flags) {
    if (fails(Stat, folder, name)) return -1;
    return int(syscall(SYS_newfstatat, folder, name, about, flags));
}

int statOpen(int descriptor, void* about) {
    if (gIsReady && fails(Stat, Subject(descriptor))) return -1;
    return int(syscall(SYS_fstat, descriptor, about));
}

FILE* openStream(const char* path, const char* mode) {
    if (fails(Open, AT_FDCWD, path)) return nullptr;
    static const auto original = next<FILE* (*)(const char*, const char*)>("fopen");
    return original(path, mode);
}

// A template's path is counted as it is given.
int makeTemporary(char* name, const char* function, Kind kind) {
    if (fails(kind, AT_FDCWD, name)) return -1;
    return next<int (*)(char*)>(function)(name);
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

int open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = modeOf(flags, rest);
    va_end(rest);
    return openAt(AT_FDCWD, path, flags, mode);
}
int open64(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = modeOf(flags, rest);
    va_end(rest);
    return openAt(AT_FDCWD, path, flags, mode);
}
int openat(int folder, const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = modeOf(flags, rest);
    va_end(rest);
    return openAt(folder, path, flags, mode);
}
int openat64(int folder, const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = modeOf(flags, rest);
    va_end(rest);
    return openAt(folder, path, flags, mode);
}
int __open_2(const char* path, int flags) { return openAt(AT_FDCWD, path, flags, 0); }
int __open64_2(const char* path, int flags) { return openAt(AT_FDCWD, path, flags, 0); }
int __openat_2(int folder, const char* path, int flags) { return openAt(folder, path, flags, 0); }
int __openat64_2(int folder, const char* path, int flags) { return openAt(folder, path, flags, 0); }
int creat(const char* path, mode_t mode) { return openAt(AT_FDCWD, path, O_WRONLY | O_CREAT | O_TRUNC, mode); }

FILE* fopen(const char* path, const char* mode) { return openStream(path, mode); }
FILE* fopen64(const char* path, const char* mode) { return openStream(path, mode); }

int mkstemp(char* name) { return makeTemporary(name, "mkstemp", Open); }
int mkstemp64(char* name) { return makeTemporary(name, "mkstemp", Open); }
char* mkdtemp(char* name) {
    if (fails(Mkdir, AT_FDCWD, name)) return nullptr;
    return next<char* (*)(char*)>("mkdtemp")(name);
}

ssize_t read(int descriptor, void* data, size_t size) {
    const Transfer transfer = transferOf(Read, descriptor, nullptr, size);
    if (transfer == Transfer::None) return -1;
    return syscall(SYS_read, descriptor, data, transfer == Transfer::OneByte ? 1 : size);
}
ssize_t pread(int descriptor, void* data, size_t size, off_t at) {
    const Transfer transfer = transferOf(Read, descriptor, nullptr, size);
    if (transfer == Transfer::None) return -1;
    return syscall(SYS_pread64, descriptor, data, transfer == Transfer::OneByte ? 1 : size, at);
}
ssize_t pread64(int descriptor, void* data, size_t size, off_t at) { return pread(descriptor, data, size, at); }

ssize_t write(int descriptor, const void* data, size_t size) {
    const Transfer transfer = transferOf(Write, descriptor, data, size);
    if (transfer == Transfer::None) return -1;
    return syscall(SYS_write, descriptor, data, transfer == Transfer::OneByte ? 1 : size);
}
ssize_t writev(int descriptor, const iovec* pieces, int count) {
    std::size_t size = 0;
    for (int i = 0; i < count; i++) size += pieces[i].iov_len;
    const Transfer transfer = transferOf(Write, descriptor, nullptr, size);
    if (transfer == Transfer::None) return -1;
    if (transfer == Transfer::Whole) return syscall(SYS_writev, descriptor, pieces, count);
    const auto* filled = std::find_if(pieces, pieces + count, [](const iovec& piece) { return piece.iov_len > 0; });
    return syscall(SYS_write, descriptor, filled->iov_base, 1);
}

// Whatever it says, the descriptor is free.
int close(int descriptor) {
    const bool isFailing = gIsReady && fails(Close, Subject(descriptor));
    const int reason = errno;
    const int result = int(syscall(SYS_close, descriptor));
    if (!isFailing) return result;
    errno = reason;
    return -1;
}

int chmod(const char* path, mode_t mode) {
    if (fails(Chmod, AT_FDCWD, path)) return -1;
    return int(syscall(SYS_fchmodat, AT_FDCWD, path, mode));
}
int fchmodat(int folder, const char* path, mode_t mode, int) {
    if (fails(Chmod, folder, path)) return -1;
    return int(syscall(SYS_fchmodat, folder, path, mode));
}
int fchmod(int descriptor, mode_t mode) {
    if (gIsReady && fails(Chmod, Subject(descriptor))) return -1;
    return int(syscall(SYS_fchmod, descriptor, mode));
}

int rename(const char* from, const char* to) {
    if (fails(Rename, AT_FDCWD, to)) return -1;
    return int(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}
int renameat(int fromFolder, const char* from, int toFolder, const char* to) {
    if (fails(Rename, toFolder, to)) return -1;
    return int(syscall(SYS_renameat2, fromFolder, from, toFolder, to, 0));
}
int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) {
    if (fails(Rename, toFolder, to)) return -1;
    return int(syscall(SYS_renameat2, fromFolder, from, toFolder, to, flags));
}
int linkat(int fromFolder, const char* from, int toFolder, const char* to, int flags) {
    if (fails(Rename, toFolder, to)) return -1;
    return int(syscall(SYS_linkat, fromFolder, from, toFolder, to, flags));
}

int flock(int descriptor, int operation) {
    if (gIsReady && fails(Flock, Subject(descriptor))) return -1;
    return int(syscall(SYS_flock, descriptor, operation));
}

int mkdir(const char* path, mode_t mode) {
    if (fails(Mkdir, AT_FDCWD, path)) return -1;
    return int(syscall(SYS_mkdirat, AT_FDCWD, path, mode));
}
int mkdirat(int folder, const char* path, mode_t mode) {
    if (fails(Mkdir, folder, path)) return -1;
    return int(syscall(SYS_mkdirat, folder, path, mode));
}

int stat(const char* path, struct stat* about) { return statAt(AT_FDCWD, path, about, 0); }
int stat64(const char* path, struct stat64* about) { return statAt(AT_FDCWD, path, about, 0); }
int lstat(const char* path, struct stat* about) { return statAt(AT_FDCWD, path, about, AT_SYMLINK_NOFOLLOW); }
int lstat64(const char* path, struct stat64* about) { return statAt(AT_FDCWD, path, about, AT_SYMLINK_NOFOLLOW); }
int fstatat(int folder, const char* path, struct stat* about, int flags) { return statAt(folder, path, about, flags); }
int fstatat64(int folder, const char* path, struct stat64* about, int flags) {
    return statAt(folder, path, about, flags);
}
int fstat(int descriptor, struct stat* about) { return statOpen(descriptor, about); }
int fstat64(int descriptor, struct stat64* about) { return statOpen(descriptor, about); }

DIR* opendir(const char* path) {
    if (fails(List, AT_FDCWD, path)) return nullptr;
    static const auto original = next<DIR* (*)(const char*)>("opendir");
    return original(path);
}
DIR* fdopendir(int descriptor) {
    if (gIsReady && fails(List, Subject(descriptor))) return nullptr;
    static const auto original = next<DIR* (*)(int)>("fdopendir");
    return original(descriptor);
}
dirent* readdir(DIR* folder) {
    if (gIsReady && fails(List, Subject(dirfd(folder)))) return nullptr;
    static const auto original = next<dirent* (*)(DIR*)>("readdir");
    return original(folder);
}
dirent64* readdir64(DIR* folder) {
    if (gIsReady && fails(List, Subject(dirfd(folder)))) return nullptr;
    static const auto original = next<dirent64* (*)(DIR*)>("readdir64");
    return original(folder);
}

int unlink(const char* path) {
    if (fails(Unlink, AT_FDCWD, path)) return -1;
    return int(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}
int unlinkat(int folder, const char* path, int flags) {
    if (fails(Unlink, folder, path)) return -1;
    return int(syscall(SYS_unlinkat, folder, path, flags));
}
int remove(const char* path) {
    if (fails(Unlink, AT_FDCWD, path)) return -1;
    static const auto original = next<int (*)(const char*)>("remove");
    return original(path);
}

void* mmap(void* address, size_t size, int protection, int flags, int file, off_t at) {
    if (gIsReady && failsHere(Map, "memory")) return MAP_FAILED;
    return reinterpret_cast<void*>(syscall(SYS_mmap, address, size, protection, flags, file, at));
}
void* mmap64(void* address, size_t size, int protection, int flags, int file, off64_t at) {
    return mmap(address, size, protection, flags, file, at);
}
int mprotect(void* address, size_t size, int protection) noexcept {
    if (gIsReady && failsHere(Protect, "memory")) return -1;
    return int(syscall(SYS_mprotect, address, size, protection));
}
int munmap(void* address, size_t size) noexcept {
    if (gIsReady && failsHere(Unmap, "memory")) return -1;
    return int(syscall(SYS_munmap, address, size));
}
int madvise(void* address, size_t size, int advice) noexcept {
    if (gIsReady && failsHere(Advise, "memory")) return -1;
    return int(syscall(SYS_madvise, address, size, advice));
}
void* mremap(void* address, size_t size, size_t newSize, int flags, ...) noexcept {
    if (gIsReady && failsHere(Remap, "memory")) return MAP_FAILED;
    va_list rest;
    va_start(rest, flags);
    void* wanted = (flags & MREMAP_FIXED) ? va_arg(rest, void*) : nullptr;
    va_end(rest);
    return reinterpret_cast<void*>(syscall(SYS_mremap, address, size, newSize, flags, wanted));
}

int pipe2(int ends[2], int flags) noexcept {
    if (gIsReady && failsHere(Pipe, "pipe")) return -1;
    return int(syscall(SYS_pipe2, ends, flags));
}
pid_t waitpid(pid_t process, int* status, int options) {
    if (gIsReady && failsHere(Wait, "process")) return -1;
    return pid_t(syscall(SYS_wait4, process, status, options, nullptr));
}
int posix_spawnp(pid_t* process, const char* file, const posix_spawn_file_actions_t* actions,
                 const posix_spawnattr_t* attributes, char* const arguments[], char* const variables[]) {
    if (gIsReady && failsHere(Spawn, file)) return errno;
    using Function = int (*)(pid_t*, const char*, const posix_spawn_file_actions_t*, const posix_spawnattr_t*,
                             char* const[], char* const[]);
    static const auto original = next<Function>("posix_spawnp");
    return original(process, file, actions, attributes, arguments, variables);
}
int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*function)(void*), void* argument) {
    if (gIsReady && failsHere(Thread, "thread")) return errno;
    static const auto original =
        next<int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
    return original(thread, attributes, function, argument);
}

}  // extern "C"
#pragma GCC visibility pop
