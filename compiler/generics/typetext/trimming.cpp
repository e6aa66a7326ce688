#include "generics/typetext/trimming.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/trim.hpp>

namespace vesk::compiler {

std::string_view trimView(std::string_view text) { return boost::algorithm::trim_copy_if(text, isTypeTextBlank); }

std::string_view quickTrimView(std::string_view text) {
    // Making a classification copies the locale: one is enough.
    static const auto isSpace = boost::algorithm::is_space();
    return boost::algorithm::trim_copy_if(text, isSpace);
}

}  // namespace vesk::compiler
