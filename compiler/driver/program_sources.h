// From the words of the command line to the files of a program: folders become their .vk files, and the program's root
// is the main file's folder less its package.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace vesk::compiler {

// A file or folder of the command line that cannot be read, or that holds no source.
class UnreadableInput : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct ProgramSources {
    std::vector<std::string> files;  // normalized, in the order given; those of a folder in order of path
    std::vector<std::string> roots;  // of the files, without repetition; the main file's first
};

// Throws UnreadableInput.
ProgramSources findProgramSources(const std::vector<std::string>& inputs);

// The package that a text's `package` line names, "" without one. Looks no further than that line.
std::string packageOfText(const std::string& text, const std::string& path);

}  // namespace vesk::compiler
