# LLVM 19, linked statically: only the components that are used.
add_library(vesk_llvm INTERFACE)
target_include_directories(vesk_llvm SYSTEM INTERFACE ${LLVM_INCLUDE_DIRS})
target_compile_definitions(vesk_llvm INTERFACE ${LLVM_DEFINITIONS_LIST})
target_compile_options(vesk_llvm INTERFACE -Wno-unused-parameter -Wno-mismatched-new-delete)
llvm_map_components_to_libnames(VESK_LLVM_LIBRARIES core support irreader orcjit x86codegen x86asmparser passes
    debuginfodwarf runtimedyld object)
target_link_libraries(vesk_llvm INTERFACE ${VESK_LLVM_LIBRARIES})
# LLVM comes without run-time type information; so do the files that derive from its classes.
set_source_files_properties(il/jit.cpp il/jit_linking.cpp il/jit_memory.cpp il/machine.cpp il/unit_module.cpp PROPERTIES
  COMPILE_OPTIONS -fno-rtti SKIP_PRECOMPILE_HEADERS ON)
