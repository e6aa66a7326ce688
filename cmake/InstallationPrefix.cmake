# Run at installation: makes libvesk_installation.a, which tells programs that embed the compiler where its library lies.
set(source "${VESK_SCRATCH}/installation_prefix.cpp")
set(object "${VESK_SCRATCH}/installation_prefix.o")
set(archive "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/${VESK_ARCHIVE_FOLDER}/libvesk_installation.a")
file(WRITE "${source}"
  "extern \"C\" const char* vesk_installation_prefix() {\n    return R\"prefix(${CMAKE_INSTALL_PREFIX})prefix\";\n}\n"
  "extern \"C\" const char* vesk_installation_archives() {\n"
  "    return R\"prefix(${CMAKE_INSTALL_PREFIX}/${VESK_ARCHIVE_FOLDER})prefix\";\n}\n")
execute_process(COMMAND ${VESK_CXX} -c -fPIC -o ${object} ${source} RESULT_VARIABLE failure)
if(failure)
  message(FATAL_ERROR "cannot compile ${source}")
endif()
file(MAKE_DIRECTORY "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/${VESK_ARCHIVE_FOLDER}")
file(REMOVE "${archive}")
execute_process(COMMAND ${VESK_AR} rcs ${archive} ${object} RESULT_VARIABLE failure)
if(failure)
  message(FATAL_ERROR "cannot make ${archive}")
endif()
message(STATUS "Installing: ${archive}")
