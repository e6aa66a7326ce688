#include "generics/typetext/trimming.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/trim.hpp>

namespace vesk::compiler {

std::string_view trimView(std::string_view text) { return boost::algorithm::trim_copy_if(text, isTypeTextBlank); }

// As the current locale classifies it. ASCII is the same in all of them, and asking costs a search for the facet.
static bool isSpace(char c) {
    const auto code = static_cast<unsigned char>(c);
    if (code < 0x80) return code == ' ' || (code >= '\t' && code <= '\r');
    return boost::algorithm::is_space()(c);
}

std::string_view quickTrimView(std::string_view text) { return boost::algorithm::trim_copy_if(text, isSpace); }

}  // namespace vesk::compiler
