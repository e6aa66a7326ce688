// Which folders and files are used, on the descriptors of real ones: other users' are made by root, and those tests are
// skipped for everybody else.
#include "cache/held_folder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>

#include "cache/trusted_cache.h"

namespace vesk::compiler {
namespace {

namespace fs = std::filesystem;
using Kind = FileProblem::Kind;

constexpr unsigned OTHER = 54321;

bool isRoot() { return ::geteuid() == 0; }

// <temporary folder>/vesk-trust-N/, ours as everything above it is.
class Ground {
public:
    Ground() {
        std::string pattern = "/tmp/vesk-trust-XXXXXX";
        EXPECT_NE(::mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
    }
    ~Ground() {
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }
    Ground(const Ground&) = delete;
    Ground& operator=(const Ground&) = delete;

    std::string at(const std::string& name) const { return (folder_ / name).string(); }
    std::string folder(const std::string& name, unsigned mode = 0700) const {
        fs::create_directories(folder_ / name);
        EXPECT_EQ(::chmod(at(name).c_str(), mode), 0);
        return at(name);
    }
    std::string file(const std::string& name, const std::string& text = "text", unsigned mode = 0600) const {
        std::ofstream(folder_ / name) << text;
        EXPECT_EQ(::chmod(at(name).c_str(), mode), 0);
        return at(name);
    }
    void give(const std::string& name, unsigned user = OTHER) const {
        EXPECT_EQ(::lchown(at(name).c_str(), user, user), 0);
    }
    void link(const std::string& name, const std::string& target) const {
        EXPECT_EQ(::symlink(target.c_str(), at(name).c_str()), 0);
    }

private:
    fs::path folder_;
};

std::string textIn(const HeldFolder& folder, const std::string& name) {
    FileProblem problem;
    const auto file = folder.open(name, problem);
    if (!file) return "none";
    char bytes[100];
    const ssize_t length = ::read(file->descriptor.number(), bytes, sizeof bytes);
    return length < 0 ? "unread" : std::string(bytes, static_cast<std::size_t>(length));
}

// ------------------------------------------------------------------------------------------------- the way down

struct WayCase {
    const char* name;
    bool needsRoot;
    std::function<void(const Ground&)> prepare;  // of "cache" or what leads to it
    Kind expected;
    const char* path = "a/b/cache";
};

const WayCase WAYS[] = {
    {"ItIsOurs", false, [](const Ground&) {}, Kind::None},
    {"OthersMayReadIt", false, [](const Ground& g) { g.folder("a/b/cache", 0755); }, Kind::None},
    {"Nothing", false, [](const Ground& g) { fs::remove_all(g.at("a/b/cache")); }, Kind::Absent},
    {"TheWayIsNotThere", false, [](const Ground&) {}, Kind::Absent, "a/c/cache"},
    {"GroupMayWriteIt", false, [](const Ground& g) { g.folder("a/b/cache", 0720); }, Kind::NotOurs},
    {"AllMayWriteIt", false, [](const Ground& g) { g.folder("a/b/cache", 0702); }, Kind::NotOurs},
    {"ItIsSticky", false, [](const Ground& g) { g.folder("a/b/cache", 01777); }, Kind::NotOurs},
    {"GroupMayWriteItsParent", false, [](const Ground& g) { g.folder("a/b", 0770); }, Kind::NotOurs},
    {"AllMayWriteItsParent", false, [](const Ground& g) { g.folder("a/b", 0703); }, Kind::NotOurs},
    {"GroupMayWriteAFolderAbove", false, [](const Ground& g) { g.folder("a", 0770); }, Kind::NotOurs},
    {"StickyParent", false, [](const Ground& g) { g.folder("a/b", 01777); }, Kind::None},
    {"StickyFolderAbove", false, [](const Ground& g) { g.folder("a", 01770); }, Kind::None},
    {"ItIsAnothers", true, [](const Ground& g) { g.give("a/b/cache"); }, Kind::NotOurs},
    {"ItsParentIsAnothers", true, [](const Ground& g) { g.give("a/b"); }, Kind::NotOurs},
    {"AFolderAboveIsAnothers", true, [](const Ground& g) { g.give("a"); }, Kind::NotOurs},
    {"StickyParentOfAnother", true,
     [](const Ground& g) {
         g.folder("a/b", 01777);
         g.give("a/b");
     },
     Kind::NotOurs},
    {"AnothersInAStickyFolder", true,
     [](const Ground& g) {
         g.folder("a/b", 01777);
         g.give("a/b/cache");
     },
     Kind::NotOurs},
    {"AnothersEvenWhenItDoesNotLeadThere", true, [](const Ground& g) { g.give("a/b"); }, Kind::NotOurs, "a/b/none"},
    {"OwnLink", false, [](const Ground& g) { g.link("link", g.at("a/b/cache")); }, Kind::None, "link"},
    {"OwnRelativeLink", false, [](const Ground& g) { g.link("a/link", "b/cache"); }, Kind::None, "a/link"},
    {"OwnLinkOnTheWay", false, [](const Ground& g) { g.link("link", "a/b"); }, Kind::None, "link/cache"},
    {"OwnLinkWithStepsBack", false, [](const Ground& g) { g.link("a/b/link", "./../../a//b/../b/cache"); }, Kind::None,
     "a/b/link"},
    {"OwnLinkAboveTheRoot", false, [](const Ground& g) { g.link("link", "../../../../../../.." + g.at("a/b/cache")); },
     Kind::None, "link"},
    {"LinkToNothing", false, [](const Ground& g) { g.link("link", "nothing"); }, Kind::Absent, "link"},
    {"LinkToItself", false, [](const Ground& g) { g.link("link", "link"); }, Kind::System, "link"},
    {"LinksInACircle", false,
     [](const Ground& g) {
         g.link("link", "a/link");
         g.link("a/link", "../link/x");
     },
     Kind::System, "link"},
    {"AnothersLink", true,
     [](const Ground& g) {
         g.link("link", "a/b/cache");
         g.give("link");
     },
     Kind::NotOurs, "link"},
    {"AnothersLinkOnTheWay", true,
     [](const Ground& g) {
         g.link("link", "a/b");
         g.give("link");
     },
     Kind::NotOurs, "link/cache"},
    {"LinkBehindALinkIsAnothers", true,
     [](const Ground& g) {
         g.link("first", "second");
         g.link("second", "a/b/cache");
         g.give("second");
     },
     Kind::NotOurs, "first"},
    {"LinkToAnothers", true,
     [](const Ground& g) {
         g.link("link", "a/b/cache");
         g.give("a/b/cache");
     },
     Kind::NotOurs, "link"},
    {"LinkThroughAnothersFolder", true,
     [](const Ground& g) {
         g.folder("side");
         g.give("side");
         g.link("link", "side/../a/b/cache");
     },
     Kind::NotOurs, "link"},
    {"AFile", false, [](const Ground& g) { g.file("file"); }, Kind::System, "file"},
    {"AFileOnTheWay", false, [](const Ground& g) { g.file("file"); }, Kind::System, "file/cache"},
    {"AnothersFile", true,
     [](const Ground& g) {
         g.file("file");
         g.give("file");
     },
     Kind::NotOurs, "file"},
    {"APipe", false, [](const Ground& g) { ::mkfifo(g.at("pipe").c_str(), 0600); }, Kind::System, "pipe"},
    {"ANameThatIsTooLong", false, [](const Ground&) {}, Kind::System,
     "a/"
     "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"
     "xx"
     "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"
     "xxxx"
     "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"
     "xxxx"},
};

class TheWay : public testing::TestWithParam<WayCase> {};

TEST_P(TheWay, IsLookedAtStepByStep) {
    const WayCase& test = GetParam();
    if (test.needsRoot && !isRoot()) GTEST_SKIP() << "only root can make files of other users";
    const Ground ground;
    ground.folder("a/b/cache");
    ground.folder("a");
    ground.folder("a/b");
    ground.file("a/b/cache/file", "ours");
    test.prepare(ground);
    FileProblem problem;
    const auto folder = HeldFolder::ours(ground.at(test.path), IfAbsent::Fail, problem);
    EXPECT_EQ(problem.kind, test.expected) << problem.text();
    EXPECT_EQ(folder != nullptr, test.expected == Kind::None);
    if (folder) {
        EXPECT_EQ(textIn(*folder, "file"), "ours");
        EXPECT_EQ(folder->path(), ground.at("a/b/cache"));
        EXPECT_TRUE(folder->isCurrent());
    } else {
        EXPECT_FALSE(problem.reason.empty());
    }
}

INSTANTIATE_TEST_SUITE_P(HeldFolder, TheWay, testing::ValuesIn(WAYS), [](const auto& test) { return test.param.name; });

// ------------------------------------------------------------------------------------------------- what lies in it

struct FileCase {
    const char* name;
    bool needsRoot;
    std::function<void(const Ground&)> prepare;  // of "cache/file"
    Kind expected;
};

void makeSocket(const std::string& path) {
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ::close(listener);
}

const FileCase FILES[] = {
    {"Ours", false, [](const Ground& g) { g.file("cache/file"); }, Kind::None},
    {"OthersMayReadIt", false, [](const Ground& g) { g.file("cache/file", "text", 0644); }, Kind::None},
    {"Nothing", false, [](const Ground&) {}, Kind::Absent},
    {"GroupMayWriteIt", false, [](const Ground& g) { g.file("cache/file", "text", 0660); }, Kind::NotOurs},
    {"AllMayWriteIt", false, [](const Ground& g) { g.file("cache/file", "text", 0602); }, Kind::NotOurs},
    {"AnothersFile", true,
     [](const Ground& g) {
         g.file("cache/file");
         g.give("cache/file");
     },
     Kind::NotOurs},
    {"OwnLink", false,
     [](const Ground& g) {
         g.file("target");
         g.link("cache/file", g.at("target"));
     },
     Kind::NotOurs},
    {"LinkToNothing", false, [](const Ground& g) { g.link("cache/file", "nothing"); }, Kind::NotOurs},
    {"AnothersLink", true,
     [](const Ground& g) {
         g.file("target");
         g.link("cache/file", g.at("target"));
         g.give("cache/file");
     },
     Kind::NotOurs},
    {"SecondNameOfAnOwnFile", false,
     [](const Ground& g) { EXPECT_EQ(::link(g.file("target").c_str(), g.at("cache/file").c_str()), 0); }, Kind::None},
    {"SecondNameOfAnothersFile", true,
     [](const Ground& g) {
         EXPECT_EQ(::link(g.file("target").c_str(), g.at("cache/file").c_str()), 0);
         g.give("target");
     },
     Kind::NotOurs},
    {"SecondNameOfAFileThatOthersMayWrite", false,
     [](const Ground& g) { EXPECT_EQ(::link(g.file("target", "text", 0666).c_str(), g.at("cache/file").c_str()), 0); },
     Kind::NotOurs},
    {"Folder", false, [](const Ground& g) { g.folder("cache/file"); }, Kind::System},
    {"AnothersFolder", true,
     [](const Ground& g) {
         g.folder("cache/file");
         g.give("cache/file");
     },
     Kind::NotOurs},
    {"Pipe", false, [](const Ground& g) { EXPECT_EQ(::mkfifo(g.at("cache/file").c_str(), 0600), 0); }, Kind::System},
    {"AnothersPipe", true,
     [](const Ground& g) {
         EXPECT_EQ(::mkfifo(g.at("cache/file").c_str(), 0600), 0);
         g.give("cache/file");
     },
     Kind::NotOurs},
    {"PipeThatOthersMayWrite", false,
     [](const Ground& g) {
         EXPECT_EQ(::mkfifo(g.at("cache/file").c_str(), 0600), 0);
         EXPECT_EQ(::chmod(g.at("cache/file").c_str(), 0622), 0);
     },
     Kind::NotOurs},
    {"Socket", false,
     [](const Ground& g) {
         makeSocket(g.at("cache/file"));
         EXPECT_EQ(::chmod(g.at("cache/file").c_str(), 0600), 0);
     },
     Kind::System},
    {"AnothersSocket", true,
     [](const Ground& g) {
         makeSocket(g.at("cache/file"));
         g.give("cache/file");
     },
     Kind::NotOurs},
    {"AnothersDevice", true,
     [](const Ground& g) {
         if (::mknod(g.at("cache/file").c_str(), S_IFCHR | 0600, 0x105) != 0)
             g.file("cache/file");  // not in containers
         g.give("cache/file");
     },
     Kind::NotOurs},
};

class AFile : public testing::TestWithParam<FileCase> {};

TEST_P(AFile, IsUsedWhenItIsOurs) {
    const FileCase& test = GetParam();
    if (test.needsRoot && !isRoot()) GTEST_SKIP() << "only root can make files of other users";
    const Ground ground;
    ground.folder("cache");
    test.prepare(ground);
    FileProblem problem;
    const auto folder = HeldFolder::ours(ground.at("cache"), IfAbsent::Fail, problem);
    ASSERT_TRUE(folder) << problem.text();

    EXPECT_EQ(folder->open("file", problem).has_value(), test.expected == Kind::None);
    EXPECT_EQ(problem.kind, test.expected) << problem.text();
    problem = {};
    EXPECT_EQ(folder->identityOf("file", problem).has_value(), test.expected == Kind::None);
    EXPECT_EQ(problem.kind, test.expected) << problem.text();
    if (test.expected == Kind::Absent) return;
    problem = {};
    EXPECT_EQ(folder->openLock("file", problem).isOpen(), test.expected == Kind::None);
    EXPECT_EQ(problem.kind, test.expected) << problem.text();
    // The same as a folder to step into.
    const bool isFolder = fs::is_directory(fs::symlink_status(ground.at("cache/file")));
    problem = {};
    EXPECT_EQ(folder->sub("file", IfAbsent::Make, problem) != nullptr, isFolder && test.expected == Kind::System);
    if (test.expected == Kind::NotOurs) {
        EXPECT_EQ(problem.kind, Kind::NotOurs);
    }
}

INSTANTIATE_TEST_SUITE_P(HeldFolder, AFile, testing::ValuesIn(FILES), [](const auto& test) { return test.param.name; });

// ------------------------------------------------------------------------------------------------- making

unsigned modeOf(const std::string& path) {
    struct stat about{};
    EXPECT_EQ(::stat(path.c_str(), &about), 0) << path;
    return about.st_mode & 07777;
}

class Umask {
public:
    explicit Umask(unsigned mask) : before_(::umask(mask)) {}
    ~Umask() { ::umask(before_); }
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;

private:
    const mode_t before_;
};

TEST(HeldFolder, WhatIsMadeIsForTheUserAlone) {
    for (const unsigned mask : {0u, 002u, 022u, 077u}) {
        const Ground ground;
        const Umask umask(mask);
        TrustedCache cache(ground.at("a/cache"), {});
        FileProblem problem;
        EXPECT_TRUE(cache.replace(ground.at("a/cache/branches/x/file"), "text", problem)) << problem.text();
        EXPECT_TRUE(cache.openLock(ground.at("a/cache/branches/locks/one.lock"), problem).isOpen());
        for (const char* folder : {"a", "a/cache", "a/cache/branches", "a/cache/branches/x", "a/cache/branches/locks"})
            EXPECT_EQ(modeOf(ground.at(folder)), 0700u) << folder;
        EXPECT_EQ(modeOf(ground.at("a/cache/branches/x/file")), 0600u);
        EXPECT_EQ(modeOf(ground.at("a/cache/branches/locks/one.lock")), 0600u);
    }
}

TEST(HeldFolder, WhatIsMadeInAFolderThatAllMayReadIsReadableToo) {
    const Ground ground;
    const Umask umask(0);
    ground.folder("cache", 0755);
    TrustedCache cache(ground.at("cache"), {});
    FileProblem problem;
    EXPECT_TRUE(cache.replace(ground.at("cache/branches/x/file"), "text", problem)) << problem.text();
    EXPECT_EQ(modeOf(ground.at("cache/branches/x")), 0755u);
    EXPECT_EQ(modeOf(ground.at("cache/branches/x/file")), 0644u);
    EXPECT_TRUE(cache.openLock(ground.at("cache/branches/lock"), problem).isOpen());
    EXPECT_EQ(modeOf(ground.at("cache/branches/lock")), 0600u) << "whoever may open a lock may hold it for ever";
}

TEST(HeldFolder, WritingReplacesALinkAndNotWhatItLeadsTo) {
    const Ground ground;
    ground.folder("cache");
    ground.file("target", "untouched");
    ground.link("cache/file", ground.at("target"));
    FileProblem problem;
    const auto folder = HeldFolder::ours(ground.at("cache"), IfAbsent::Fail, problem);
    ASSERT_TRUE(folder);
    EXPECT_TRUE(folder->replace("file", "new", problem));
    EXPECT_EQ(textIn(*folder, "file"), "new");
    EXPECT_FALSE(fs::is_symlink(ground.at("cache/file")));
    std::string text;
    std::ifstream(ground.at("target")) >> text;
    EXPECT_EQ(text, "untouched");
    EXPECT_EQ(folder->names(), std::vector<std::string>{"file"}) << "a temporary file is left";
}

TEST(HeldFolder, AFailedWriteLeavesNoTemporaryFile) {
    const Ground ground;
    ground.folder("cache/file/inner");
    FileProblem problem;
    const auto folder = HeldFolder::ours(ground.at("cache"), IfAbsent::Fail, problem);
    ASSERT_TRUE(folder);
    EXPECT_FALSE(folder->replace("file", "new", problem));
    EXPECT_EQ(problem.kind, Kind::System);
    EXPECT_EQ(folder->names(), std::vector<std::string>{"file"});
}

// ------------------------------------------------------------------------------------------------- exchanges

TEST(HeldFolder, AnExchangeAfterTheCheckChangesNothing) {
    const Ground ground;
    ground.folder("cache");
    ground.file("cache/file", "ours");
    FileProblem problem;
    const auto folder = HeldFolder::ours(ground.at("cache"), IfAbsent::Fail, problem);
    ASSERT_TRUE(folder);
    fs::rename(ground.at("cache"), ground.at("away"));
    ground.folder("evil");
    ground.file("evil/file", "planted");
    ground.link("cache", "evil");
    EXPECT_EQ(textIn(*folder, "file"), "ours");
    EXPECT_FALSE(folder->isCurrent());
    EXPECT_TRUE(folder->replace("second", "more", problem));
    EXPECT_TRUE(fs::exists(ground.at("away/second")));
    EXPECT_FALSE(fs::exists(ground.at("evil/second")));
    EXPECT_EQ(folder->names(), (std::vector<std::string>{"file", "second"}));
}

class Exchanges : public testing::Test {
protected:
    void SetUp() override {
        ground.folder("cache/branches/x");
        for (const char* folder : {"cache", "cache/branches", "cache/branches/x"}) ground.folder(folder);
        ground.file("cache/branches/x/file", "ours");
    }
    std::string read() {
        const auto file = cache.open(ground.at("cache/branches/x/file"));
        char bytes[100];
        const ssize_t length = file ? ::read(file->descriptor.number(), bytes, sizeof bytes) : -1;
        return length < 0 ? "none" : std::string(bytes, static_cast<std::size_t>(length));
    }
    const Ground ground;
    std::vector<std::string> complaints;
    TrustedCache cache{ground.at("cache"), [this](const std::string& what) { complaints.push_back(what); }};
};

TEST_F(Exchanges, AFolderThatIsOpenedToOthersIsNotUsedAnyMore) {
    EXPECT_EQ(read(), "ours");
    ground.folder("cache/branches", 0777);
    EXPECT_EQ(read(), "ours") << "the folder below is held, and is what it was";
    ground.folder("cache/branches/x", 0720);
    EXPECT_EQ(read(), "none");
    ASSERT_EQ(complaints.size(), 1u);
    EXPECT_NE(complaints[0].find("cache/branches: others may write it (mode 0777)"), std::string::npos)
        << complaints[0];
}

TEST_F(Exchanges, AFolderThatIsRemovedAndMadeAgainIsTheNewOne) {
    EXPECT_EQ(read(), "ours");
    fs::remove_all(ground.at("cache"));
    EXPECT_EQ(read(), "none");
    FileProblem problem;
    EXPECT_TRUE(cache.replace(ground.at("cache/branches/x/file"), "again", problem)) << problem.text();
    EXPECT_EQ(read(), "again");
    EXPECT_TRUE(complaints.empty());
}

TEST_F(Exchanges, AFolderThatBecomesALinkIsNotFollowed) {
    EXPECT_EQ(read(), "ours");
    fs::rename(ground.at("cache/branches/x"), ground.at("x"));
    ground.link("cache/branches/x", ground.at("x"));
    ground.folder("y");
    ground.file("y/file", "planted");
    EXPECT_EQ(read(), "ours") << "it is the very folder that was looked at";
    fs::remove(ground.at("cache/branches/x"));
    ground.link("cache/branches/x", ground.at("y"));
    EXPECT_EQ(read(), "none");
    EXPECT_EQ(complaints.size(), 1u);
}

TEST_F(Exchanges, AFolderThatBecomesAnothersIsNotUsedAnyMore) {
    if (!isRoot()) GTEST_SKIP() << "only root can make files of other users";
    EXPECT_EQ(read(), "ours");
    ground.give("cache/branches/x/file");
    EXPECT_EQ(read(), "none");
    ground.give("cache/branches/x/file", 0);
    EXPECT_EQ(read(), "ours");
    ground.give("cache/branches/x");
    EXPECT_EQ(read(), "none");
    EXPECT_EQ(complaints.size(), 2u);
}

// ------------------------------------------------------------------------------------------------- the cache

TEST(TrustedCache, HoldsWhatCompilersWrite) {
    const TrustedCache cache("/c/d", {});
    for (const char* path : {"/c/d/branches", "/c/d/branches/x", "/c/d/apps/x/y"})
        EXPECT_TRUE(cache.holds(path)) << path;
    for (const char* path :
         {"/c/d", "/c/d/", "/c/d/other", "/c/d/branchesx", "/c/d/app", "/c/dx/branches/x", "/branches", ""})
        EXPECT_FALSE(cache.holds(path)) << path;
}

TEST(TrustedCache, RemovingDoesNotFollowLinks) {
    const Ground ground;
    ground.folder("cache/branches/x");
    ground.folder("outside");
    ground.file("outside/file");
    ground.file("cache/branches/x/one");
    ground.link("cache/branches/link", ground.at("outside"));
    ground.link("cache/branches/x/two", ground.at("outside/file"));
    for (const char* folder : {"cache", "cache/branches", "cache/branches/x"}) ground.folder(folder);
    TrustedCache cache(ground.at("cache"), {});
    FileProblem problem;
    EXPECT_EQ(cache.remove(ground.at("cache/branches"), problem), 3u);
    EXPECT_FALSE(problem) << problem.text();
    EXPECT_FALSE(fs::exists(ground.at("cache/branches")));
    EXPECT_TRUE(fs::exists(ground.at("outside/file")));
    EXPECT_EQ(cache.remove(ground.at("cache/branches"), problem), 0u);
    EXPECT_FALSE(problem);
}

TEST(TrustedCache, RemovingLeavesWhatIsAnothers) {
    if (!isRoot()) GTEST_SKIP() << "only root can make files of other users";
    const Ground ground;
    ground.folder("cache/branches/x/deep");
    ground.folder("cache/branches/theirs");
    for (const char* folder : {"cache", "cache/branches", "cache/branches/x", "cache/branches/x/deep"})
        ground.folder(folder);
    for (const char* file : {"x/ours", "x/theirs", "x/deep/ours", "theirs/ours"})
        ground.file(std::string("cache/branches/") + file);
    ground.link("cache/branches/x/link", "ours");
    ground.give("cache/branches/x/theirs");
    ground.give("cache/branches/x/link");
    ground.give("cache/branches/theirs");
    TrustedCache cache(ground.at("cache"), {});
    FileProblem problem;
    EXPECT_EQ(cache.remove(ground.at("cache/branches"), problem), 2u);
    EXPECT_EQ(problem.kind, Kind::NotOurs);
    for (const char* path : {"x/theirs", "x/link", "theirs/ours"})
        EXPECT_TRUE(fs::exists(fs::symlink_status(ground.at(std::string("cache/branches/") + path)))) << path;
    for (const char* path : {"x/ours", "x/deep"})
        EXPECT_FALSE(fs::exists(ground.at(std::string("cache/branches/") + path))) << path;
}

TEST(TrustedCache, ManyFoldersDoNotNeedManyDescriptors) {
    const Ground ground;
    ground.folder("cache");
    TrustedCache cache(ground.at("cache"), {});
    FileProblem problem;
    for (int i = 0; i < 150; i++) {
        const std::string name = "cache/apps/" + std::to_string(i) + "/file";
        ASSERT_TRUE(cache.replace(ground.at(name), "text", problem)) << problem.text();
    }
    const auto descriptors = std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    EXPECT_LT(descriptors, 120);
    for (int i = 0; i < 150; i++) EXPECT_TRUE(cache.open(ground.at("cache/apps/" + std::to_string(i) + "/file"))) << i;
}

TEST(TrustedCache, TheFolderItselfMayBeMissingButNotAnothers) {
    const Ground ground;
    EXPECT_FALSE(TrustedCache(ground.at("none/cache"), {}).check());
    ground.file("file");
    EXPECT_FALSE(TrustedCache(ground.at("file"), {}).check()) << "trouble comes when something is to be written";
    ground.folder("open", 0777);
    EXPECT_EQ(TrustedCache(ground.at("open"), {}).check().kind, Kind::NotOurs);
    EXPECT_EQ(TrustedCache(ground.at("open/cache"), {}).check().kind, Kind::NotOurs);
}

}  // namespace
}  // namespace vesk::compiler
