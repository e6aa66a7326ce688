# The line editor of interactive sessions, with what it stands on; linked statically like LLVM.
find_library(VESK_EDIT_LIBRARY NAMES libedit.a REQUIRED)
find_library(VESK_TERMINAL_LIBRARY NAMES libtinfo.a REQUIRED)
find_library(VESK_BSD_LIBRARY NAMES libbsd.a REQUIRED)
find_library(VESK_DIGEST_LIBRARY NAMES libmd.a REQUIRED)
add_library(vesk_terminal INTERFACE)
target_link_libraries(vesk_terminal INTERFACE ${VESK_EDIT_LIBRARY} ${VESK_BSD_LIBRARY} ${VESK_DIGEST_LIBRARY}
  ${VESK_TERMINAL_LIBRARY})
