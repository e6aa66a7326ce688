// A folder for the time of a piece of work: locked while its owner lives, removed with it.
// The lock is what tells a folder at work from one that a killed process has left: making a folder removes those that
// stand beside it and are nobody's any more.
#pragma once

#include <string>

namespace vesk::compiler {

class TemporaryFolder {
public:
    // Makes one in `parent`. Throws std::system_error.
    explicit TemporaryFolder(const std::string& parent);
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
    int lock_ = -1;
};

}  // namespace vesk::compiler
