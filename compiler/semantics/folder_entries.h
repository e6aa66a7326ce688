// Listing folders of sources.
#pragma once

#include <cerrno>
#include <filesystem>
#include <string>

namespace vesk::compiler {

// The entries of a folder; an opening that a signal interrupts is tried again.
inline std::filesystem::directory_iterator folderEntries(const std::string& folder, std::error_code& error) {
    std::filesystem::directory_iterator entries;
    do {
        error.clear();
        entries = std::filesystem::directory_iterator(folder, error);
    } while (error == std::errc::interrupted);
    return entries;
}

}  // namespace vesk::compiler
