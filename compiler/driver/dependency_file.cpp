// Writing of make rules.
#include "driver/dependency_file.h"

namespace vesk::compiler {
namespace {

std::string escaped(const std::string& path) {
    std::string out;
    for (const char c : path) {
        if (c == '$')
            out += '$';
        else if (c == ' ' || c == '\t' || c == '#' || c == '\\')
            out += '\\';
        out += c;
    }
    return out;
}

}  // namespace

std::string dependencyRule(const std::string& target, const std::vector<std::string>& files) {
    std::string rule = escaped(target) + ":";
    for (const std::string& file : files) rule += " \\\n  " + escaped(file);
    return rule + "\n";
}

}  // namespace vesk::compiler
