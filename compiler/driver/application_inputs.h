// The sources of the program that is compiled: what the cache keeps of it holds as long as they stay as they are.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "driver/stored_unit.h"
#include "semantics/compile_session.h"

namespace vesk::compiler {

class ApplicationInputs {
public:
    // `givenFiles` are those of the command, in order.
    ApplicationInputs(CompileSession& session, const std::vector<std::string>& givenFiles);

    // Of the command's files and source roots.
    const std::string& commandHash() const { return commandHash_; }
    // The application's loaded sources and the folders of its packages. Nothing when a source was written after this
    // compilation began: it may have been compiled as it was before.
    std::optional<std::vector<StoredUnit::Input>> collect();
    // Whether all sources that are loaded now are among `inputs`, and all of these are as they were.
    bool areCurrent(const std::vector<StoredUnit::Input>& inputs);

private:
    std::uint64_t hashOf(const std::string& path);

    CompileSession& session_;
    std::string commandHash_;
    std::unordered_map<std::string, std::uint64_t> hashes_;  // of paths that were asked for
    std::filesystem::file_time_type start_ = std::filesystem::file_time_type::clock::now();
};

}  // namespace vesk::compiler
