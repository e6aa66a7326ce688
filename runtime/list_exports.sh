#!/bin/sh
# list_exports.sh NM OUT OBJECT...: writes the table behind exportedSymbol() from the symbols vesk_* that the objects
# define. Sorted by name, so that it can be searched by halves.
nm=$1 out=$2
shift 2
symbols=$("$nm" --defined-only "$@" | awk 'NF == 3 && $3 ~ /^vesk_/ && $2 ~ /[TWDRB]/ { print $3 }' | LC_ALL=C sort -u)
{
    echo '// Written by list_exports.sh.'
    echo '#include <algorithm>'
    echo '#include <iterator>'
    echo '#include "runtime/exports.h"'
    echo 'extern "C" {'
    for symbol in $symbols; do echo "extern char $symbol[];"; done
    echo '}'
    echo 'namespace vesk::runtime {'
    echo 'namespace {'
    echo 'struct Export { const char* name; char* address; };'
    echo 'const Export EXPORTS[] = {'
    for symbol in $symbols; do echo "    {\"$symbol\", $symbol},"; done
    echo '};'
    echo '}  // namespace'
    echo 'void* exportedSymbol(std::string_view name) {'
    echo '    auto found = std::lower_bound(std::begin(EXPORTS), std::end(EXPORTS), name,'
    echo '        [](const Export& e, std::string_view wanted) { return std::string_view(e.name) < wanted; });'
    echo '    return found != std::end(EXPORTS) && found->name == name ? found->address : nullptr;'
    echo '}'
    echo '}  // namespace vesk::runtime'
} >"$out.new" && mv "$out.new" "$out"
