# What an installation holds: the command, the standard library it finds beside itself (bin/../share/vesk/stdlib), and
# for programs that embed the compiler the headers, the static libraries, a CMake package and a pkg-config file.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/stdlib/ DESTINATION ${CMAKE_INSTALL_DATADIR}/vesk/stdlib FILES_MATCHING PATTERN "*.vk")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/compiler/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vesk FILES_MATCHING PATTERN "*.h")
get_property(VESK_INSTALLED_LIBRARIES GLOBAL PROPERTY VESK_LIBRARIES)
foreach(library IN LISTS VESK_INSTALLED_LIBRARIES ITEMS vesk_runtime)
  if(TARGET ${library})
    install(TARGETS ${library} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}/vesk)
    list(APPEND VESK_ARCHIVES ${library})
  endif()
endforeach()
list(REMOVE_DUPLICATES VESK_ARCHIVES)
# `veskc build` links the collector beside the run-time library.
if(VESK_GC_LIBRARY MATCHES "\\.a$")
  install(FILES ${VESK_GC_LIBRARY} DESTINATION ${CMAKE_INSTALL_LIBDIR}/vesk)
endif()
list(TRANSFORM VESK_ARCHIVES PREPEND "-l" OUTPUT_VARIABLE VESK_LINK_FLAGS)
list(TRANSFORM VESK_LINK_FLAGS REPLACE "^-l" "-l:lib")
list(TRANSFORM VESK_LINK_FLAGS APPEND ".a")
string(JOIN " " VESK_LINK_FLAGS ${VESK_LINK_FLAGS})

configure_file(${CMAKE_CURRENT_LIST_DIR}/vesk.pc.in ${PROJECT_BINARY_DIR}/vesk.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vesk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/vesk-config.cmake.in ${PROJECT_BINARY_DIR}/vesk-config.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vesk)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vesk-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vesk-config.cmake ${PROJECT_BINARY_DIR}/vesk-config-version.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vesk)
