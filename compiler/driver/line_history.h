// The lines that were typed at a terminal, kept in a file for later sessions.
// The file is text, a line of it for each line typed. Sessions may use it together: each line is appended at once, under a
// lock on the file, so that none is lost however a session ends, and a file that has grown too long is replaced as a whole
// by its last part. Only a regular file of the user's own is used, and links are not followed. Whatever is wrong with it
// costs the history and nothing else.
#pragma once

#include <string>
#include <vector>

namespace vesk::compiler {

class LineHistory {
public:
    // What a file holds at most, what is left of it then, and the longest line that is kept.
    struct Limits {
        std::size_t fileBytes = std::size_t(1) << 20, keptBytes = std::size_t(512) << 10,
                    lineBytes = std::size_t(64) << 10;
    };
    explicit LineHistory(std::string path) : LineHistory(std::move(path), Limits()) {}
    LineHistory(std::string path, Limits limits) : path_(std::move(path)), limits_(limits) {}
    // In the user's home folder.
    static LineHistory ofUser();

    // The lines of earlier sessions, the oldest first. Makes the file when there is none.
    std::vector<std::string> load();
    void add(const std::string& line);
    // Why lines are not kept, "" when they are. Each trouble is told once.
    std::string takeTrouble();

private:
    bool append(int file, const std::string& line);
    bool replace(const std::string& text);
    void fail(const std::string& reason);

    std::string path_;  // "": nothing is kept
    Limits limits_;
    std::string trouble_;
    bool hasFailed_ = false;
};

}  // namespace vesk::compiler
