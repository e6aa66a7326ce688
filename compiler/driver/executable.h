// Linking a program's objects to an executable with the system's linker.
// Objects and what the linker writes lie in temporary files; the executable appears in its place when it is whole. The
// objects are added in the order in which they are linked.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "driver/temporary_folder.h"

namespace vesk::compiler {

// The executable, or something it is made from, cannot be written or found: the text says what and why.
class ExecutableTrouble : public std::runtime_error {
    using runtime_error::runtime_error;
};
// The linker does not accept the objects.
class LinkFailure : public std::runtime_error {
    using runtime_error::runtime_error;
};
// The system has no memory or process left for the linker.
class OutOfResources : public std::runtime_error {
    using runtime_error::runtime_error;
};

class Executable {
public:
    // Throws ExecutableTrouble, like all that follows, when no file can be made there.
    explicit Executable(std::string output);

    void addObject(std::string_view bytes);
    // With the run-time library, the collector and the C++ library. The linker driver is `cc`, `gcc`, `g++` or `clang`,
    // or what VESK_CC says. Throws LinkFailure, or OutOfResources.
    void link();
    // Where the linker has written, until publish().
    const std::string& linkedFile() const { return linked_; }
    void append(std::string_view bytes);
    void publish();

private:
    std::string output_;
    std::unique_ptr<TemporaryFolder> beside_, objectFolder_;
    std::string linked_;  // in the folder beside `output_`
    std::vector<std::string> objects_;
};

}  // namespace vesk::compiler
