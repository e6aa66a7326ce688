# What an installation holds: the command, the standard library it finds beside itself (bin/../share/vesk/stdlib), and
# for programs that embed the compiler the headers, the static libraries, a CMake package and a pkg-config file. These name
# the folder they lie in by their own place; programs that link the libraries learn it from libvesk_installation.a, which is
# made when the prefix is known: at installation.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(FILES ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/vesk)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/stdlib/ DESTINATION ${CMAKE_INSTALL_DATADIR}/vesk/stdlib FILES_MATCHING PATTERN "*.vk")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/compiler/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vesk
  FILES_MATCHING PATTERN "*.h" PATTERN "*_test.h" EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/runtime DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vesk
  FILES_MATCHING PATTERN "*.h" PATTERN "*_test.h" EXCLUDE)
get_property(VESK_INSTALLED_LIBRARIES GLOBAL PROPERTY VESK_LIBRARIES)
foreach(library IN LISTS VESK_INSTALLED_LIBRARIES ITEMS vesk_runtime)
  if(TARGET ${library})
    install(TARGETS ${library} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}/vesk)
    list(APPEND VESK_ARCHIVES ${library})
  endif()
endforeach()
list(REMOVE_DUPLICATES VESK_ARCHIVES)
# `veskc build` links these beside the run-time library.
foreach(library IN ITEMS ${VESK_GC_LIBRARY} ${VESK_UNICODE_LIBRARY})
  if(library MATCHES "\\.a$")
    install(FILES ${library} DESTINATION ${CMAKE_INSTALL_LIBDIR}/vesk)
  endif()
endforeach()
list(TRANSFORM VESK_ARCHIVES PREPEND "-l:lib" OUTPUT_VARIABLE VESK_LINK_FLAGS)
list(TRANSFORM VESK_LINK_FLAGS APPEND ".a")
string(JOIN " " VESK_LINK_FLAGS -Wl,-u,vesk_installation_prefix -Wl,--start-group ${VESK_LINK_FLAGS}
  -l:libvesk_installation.a -Wl,--end-group)

install(CODE "
  set(VESK_CXX \"${CMAKE_CXX_COMPILER}\")
  set(VESK_AR \"${CMAKE_AR}\")
  set(VESK_ARCHIVE_FOLDER \"${CMAKE_INSTALL_LIBDIR}/vesk\")
  set(VESK_SCRATCH \"${PROJECT_BINARY_DIR}/installation\")
  include(\"${CMAKE_CURRENT_LIST_DIR}/InstallationPrefix.cmake\")")

# The pkg-config file and the CMake package find the prefix from where they lie.
file(RELATIVE_PATH VESK_PREFIX_FROM_PKGCONFIG /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${CMAKE_CURRENT_LIST_DIR}/vesk.pc.in ${PROJECT_BINARY_DIR}/vesk.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vesk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/vesk-config.cmake.in ${PROJECT_BINARY_DIR}/vesk-config.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vesk)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vesk-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vesk-config.cmake ${PROJECT_BINARY_DIR}/vesk-config-version.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vesk)
