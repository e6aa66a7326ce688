// Preloading with an index gives what preloading without one gives, whatever has become of the bundles and of the index.
#include "generics/bundles/bundle_index.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <thread>

#include "generics/bundles/bundle_program_test.h"

namespace vesk::compiler {
namespace {

constexpr std::size_t COUNT = 40;
const Str INDEX = ".index";

class BundleIndexes : public Bundles {
protected:
    Str cache() const { return folder.path() + "/cache"; }
    StrVec filesNamed(const Str& part) const {
        StrVec found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(cache())) {
            if (entry.path().filename().string().find(part) != Str::npos) found.push_back(entry.path().string());
        }
        return found;
    }
    Str indexPath() const {
        const StrVec found = filesNamed(INDEX);
        EXPECT_EQ(found.size(), 1u);
        return found.empty() ? "" : found[0];
    }
    // Until files are so old that a change would show in their times.
    static void settle() { std::this_thread::sleep_for(std::chrono::milliseconds(150)); }
    void makeBundles(std::size_t from = 0, std::size_t to = COUNT) const { ManyBundles(folder.path()).make(from, to); }
    void makeSettledBundles(std::size_t from = 0, std::size_t to = COUNT) const {
        makeBundles(from, to);
        settle();
    }

    // What a compilation on a thread that has seen nothing yet finds for a unit: the keys and what is behind them.
    std::map<Str, Str> preloaded(CacheMode cache = CacheMode::On, const Str& unit = "main.vk") const {
        std::map<Str, Str> entries;
        std::thread([&] {
            ManyBundles many(folder.path(), cache);
            if (unit != "main.vk") many.scope = many.program.load(unit);
            many.preload();
            for (const auto& [key, cached] : gGenericMethodSpecCache) {
                const GenericMethodSpec& spec = cached.spec;
                entries[key] = spec.symbol + " " + spec.returnType + " " + joinTypes(spec.paramTypes) + " " +
                               joinTypes(cached.typeArgs) + " " + cached.sourcePath + " " +
                               ClassLoader::sourceFileForSymbol(spec.symbol);
            }
        }).join();
        return entries;
    }
    void expectSameWithoutIndex(const Str& what) const {
        const auto with = preloaded();
        const Str index = indexPath(), away = index + ".away";
        std::filesystem::rename(index, away);
        EXPECT_EQ(with, preloaded()) << what;
        std::filesystem::rename(away, index);
    }
    // Preloading locks every bundle that it opens.
    std::size_t bundlesOpened() const {
        std::filesystem::remove_all(cache() + "/branches/.artifact-locks");
        preloaded();
        return filesNamed(".lock").size();
    }
};

TEST_F(BundleIndexes, TheSecondPreloadingOpensNoBundle) {
    makeSettledBundles();
    EXPECT_EQ(bundlesOpened(), COUNT);
    const Str index = indexPath(), bytes = readFile(index);
    const auto found = preloaded();
    EXPECT_EQ(found.size(), 2 * COUNT);
    EXPECT_EQ(bundlesOpened(), 0u);
    expectSameWithoutIndex("as it was made");
    EXPECT_EQ(readFile(index), bytes);
    EXPECT_EQ(filesNamed(".tmp-"), StrVec{});
}

TEST_F(BundleIndexes, FewOrNewBundlesMakeNone) {
    makeSettledBundles();
    const auto setTimes = [&](std::chrono::minutes fromNow) {
        for (const Str& bundle : bundles())
            std::filesystem::last_write_time(bundle, std::filesystem::file_time_type::clock::now() + fromNow);
        settle();
    };
    setTimes(std::chrono::minutes(1));
    EXPECT_EQ(preloaded().size(), 2 * COUNT);
    EXPECT_EQ(filesNamed(INDEX), StrVec{}) << "of bundles whose times a further change might not move";
    setTimes(std::chrono::minutes(-1));
    for (std::size_t i = 31; i < COUNT; i++) std::filesystem::remove(bundles().back());
    EXPECT_EQ(preloaded().size(), 2u * 31);
    EXPECT_EQ(filesNamed(INDEX), StrVec{}) << "of few";
}

TEST_F(BundleIndexes, WhatIsNotWrittenHasNone) {
    makeSettledBundles();
    const auto found = preloaded(CacheMode::ReadOnly);
    EXPECT_EQ(found.size(), 2 * COUNT);
    preloaded(CacheMode::Memory);
    preloaded(CacheMode::Off);
    EXPECT_EQ(filesNamed(INDEX), StrVec{});
    preloaded();
    const Str index = indexPath();
    EXPECT_EQ(preloaded(CacheMode::ReadOnly), found) << "one that is there is read";
}

// Bundles that come later are read one by one until they are many.
TEST_F(BundleIndexes, GrowsBySteps) {
    makeSettledBundles();
    preloaded();
    const Str first = readFile(indexPath());
    makeSettledBundles(COUNT, COUNT + 31);
    EXPECT_EQ(bundlesOpened(), 31u);
    EXPECT_EQ(bundlesOpened(), 31u);
    EXPECT_EQ(readFile(indexPath()), first);
    makeSettledBundles(COUNT + 31, COUNT + 32);
    EXPECT_EQ(bundlesOpened(), 32u);
    EXPECT_EQ(bundlesOpened(), 0u);
    EXPECT_EQ(preloaded().size(), 2 * (COUNT + 32));
    expectSameWithoutIndex("grown");
    // Of 360, more than 40 are many.
    makeSettledBundles(COUNT + 32, 320);
    preloaded();
    const Str grown = readFile(indexPath());
    makeSettledBundles(320, 360);
    EXPECT_EQ(bundlesOpened(), 40u);
    EXPECT_EQ(readFile(indexPath()), grown);
    makeSettledBundles(360, 370);
    EXPECT_EQ(bundlesOpened(), 50u);
    EXPECT_EQ(bundlesOpened(), 0u);
}

struct Change {
    Str what;
    std::function<void(const Str& bundle)> make;
    bool isLost = true;  // whether the bundle's specialization is not found any more
};

void setTimes(const Str& path, const struct stat& times) {
    const timespec both[] = {times.st_atim, times.st_mtim};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), both, 0), 0);
}

void overwriteInPlace(const Str& path, const Str& text) {
    const int descriptor = open(path.c_str(), O_WRONLY);
    ASSERT_EQ(pwrite(descriptor, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    close(descriptor);
}

Str withName(Str text, const Str& name) {
    const Str key = "-method-name ";
    return text.replace(text.find(key) + key.size(), Str("swap").size(), name);
}

TEST_F(BundleIndexes, ABundleThatIsNotWhatItWasIsReadAgain) {
    const std::vector<Change> changes{
        {"another text of the same length, in place, with the old times",
         [](const Str& path) {
             struct stat before{};
             stat(path.c_str(), &before);
             overwriteInPlace(path, withName(readFile(path), "pair"));
             setTimes(path, before);
         }},
        {"another file of the same length and time in its place",
         [](const Str& path) {
             struct stat before{};
             stat(path.c_str(), &before);
             writeFile(path + ".new", withName(readFile(path), "pair"));
             setTimes(path + ".new", before);
             std::filesystem::rename(path + ".new", path);
         }},
        {"cut off", [](const Str& path) { std::filesystem::resize_file(path, 100); }},
        {"empty", [](const Str& path) { std::filesystem::resize_file(path, 0); }},
        {"removed", [](const Str& path) { std::filesystem::remove(path); }},
        {"a folder in its place",
         [](const Str& path) {
             std::filesystem::remove(path);
             std::filesystem::create_directory(path);
         }},
        {"another bundle in its place",
         [](const Str& path) {
             const auto parent = std::filesystem::path(path).parent_path();
             for (const auto& entry : std::filesystem::directory_iterator(parent)) {
                 if (entry.path() == path) continue;
                 std::filesystem::copy_file(entry.path(), path, std::filesystem::copy_options::overwrite_existing);
                 return;
             }
         }},
        {"older than its owner",
         [](const Str& path) {
             std::filesystem::last_write_time(path,
                                              std::filesystem::file_time_type::clock::now() - std::chrono::hours(2));
         }},
        {"touched",
         [](const Str& path) { std::filesystem::last_write_time(path, std::filesystem::file_time_type::clock::now()); },
         false},
        {"the same text again",
         [](const Str& path) {
             writeFile(path + ".new", readFile(path));
             std::filesystem::rename(path + ".new", path);
         },
         false},
        {"a longer text", [](const Str& path) { writeFile(path, readFile(path) + "# more\n"); }, false},
    };
    makeSettledBundles();
    preloaded();
    std::size_t left = COUNT;
    for (std::size_t i = 0; i < changes.size(); i++) {
        const Str bundle = filesNamed("__GM_").at(i);
        changes[i].make(bundle);
        if (changes[i].isLost) left--;
        EXPECT_EQ(preloaded().size(), 2 * left) << changes[i].what;
        expectSameWithoutIndex(changes[i].what);
    }
}

// Within one session, too.
TEST_F(BundleIndexes, AManifestOfTheIndexIsAsCurrentAsOthers) {
    makeSettledBundles();
    preloaded();
    const ManyBundles many(folder.path());
    many.preload();
    const Str bundle = bundles().front();
    const Str symbol = genericMethodBundleDeclaredSymbols(bundle).at(0);
    Str text = readFile(bundle);
    const Str other = symbol.substr(0, symbol.size() - 1) + (symbol.back() == '0' ? "1" : "0");
    overwriteInPlace(bundle, text.replace(text.find(symbol), symbol.size(), other));
    EXPECT_EQ(genericMethodBundleDeclaredSymbols(bundle), StrVec{other});
    std::filesystem::remove(bundle);
    EXPECT_EQ(genericMethodBundleDeclaredSymbols(bundle), StrVec{});
}

// Bundles of one class lie side by side, whichever file has asked for them.
TEST_F(BundleIndexes, BundlesOfAnotherCallerAreLeftAlone) {
    makeSettledBundles();
    const auto found = preloaded();
    const Str other = writeFile(folder.path() + "/other.vk", "import app\nimport lib\n");
    std::filesystem::last_write_time(other, std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    EXPECT_EQ(preloaded(CacheMode::On, "other.vk").size(), 0u);
    EXPECT_EQ(preloaded(), found);
}

TEST_F(BundleIndexes, SourcesThatAreNewerCount) {
    makeSettledBundles();
    EXPECT_EQ(preloaded().size(), 2 * COUNT);
    std::filesystem::last_write_time(folder.path() + "/lib/box.vk",
                                     std::filesystem::file_time_type::clock::now() + std::chrono::hours(1));
    EXPECT_EQ(preloaded().size(), 0u);
}

// Cut off anywhere, or with any byte changed: never a failure, and never another answer.
TEST_F(BundleIndexes, DamagedOnesAreNone) {
    makeSettledBundles();
    const auto expected = preloaded();
    const Str index = indexPath(), good = readFile(index);
    const auto check = [&](const Str& bytes, const Str& what) {
        writeFile(index, bytes);
        EXPECT_EQ(preloaded(), expected) << what;
        EXPECT_EQ(readFile(index), good) << what << ": not written anew";
    };
    for (std::size_t i = 0; i < good.size(); i += i < 100 ? 7 : good.size() / 60) {
        check(good.substr(0, i), "cut off at " + std::to_string(i));
        Str flipped = good;
        flipped[i] = static_cast<char>(flipped[i] ^ 0x10);
        check(flipped, "changed at " + std::to_string(i));
    }
    check(good + "x", "longer");
    check(Str(good.size(), '\0'), "zeros");
    std::filesystem::remove(index);
    std::filesystem::create_directory(index);
    EXPECT_EQ(preloaded(), expected) << "a folder in its place";
    std::filesystem::remove(index);
    ASSERT_EQ(mkfifo(index.c_str(), 0600), 0);
    EXPECT_EQ(preloaded(), expected) << "a pipe in its place";
}

}  // namespace
}  // namespace vesk::compiler
