# What every target of the project is compiled with.
add_library(pictra_flags INTERFACE)
target_include_directories(pictra_flags INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
target_compile_options(pictra_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Werror)
# g++ 12 sees overlapping copies inside std::string where there are none (its bug 105651).
target_compile_options(pictra_flags INTERFACE $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-restrict>)
if(PICTRA_SANITIZE)
  target_compile_options(pictra_flags INTERFACE -fsanitize=${PICTRA_SANITIZE} -fno-sanitize-recover=all
                                                -fno-omit-frame-pointer)
  target_link_options(pictra_flags INTERFACE -fsanitize=${PICTRA_SANITIZE})
  # g++ 12 sees accesses beyond strings and arrays where sanitizers have changed the code, and there are none.
  target_compile_options(pictra_flags INTERFACE
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-array-bounds> $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-stringop-overflow>)
  # clang's run time is in the program. What it needs for the library's C++ is left out of programs in C unless told.
  if(CMAKE_CXX_COMPILER_ID STREQUAL Clang AND PICTRA_SANITIZE MATCHES undefined)
    target_link_options(pictra_flags INTERFACE -fsanitize-link-c++-runtime)
    target_link_libraries(pictra_flags INTERFACE stdc++)
  endif()
endif()

# Hardening, as far as it needs nothing beyond the C library. Where the stack protector's value is kept by the dynamic
# loader, as on aarch64, the library would need the loader, too.
if(NOT CMAKE_SYSTEM_PROCESSOR STREQUAL aarch64)
  set(PICTRA_STACK_PROTECTOR ON)
  target_compile_options(pictra_flags INTERFACE -fstack-protector-strong)
endif()
target_link_options(pictra_flags INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)
# Sanitizers check more than _FORTIFY_SOURCE, which needs an optimising compiler.
if(NOT PICTRA_SANITIZE)
  target_compile_options(pictra_flags INTERFACE $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE>
                                                $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
endif()
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
  # Marked for the shadow stack, which costs nothing. Marks of where calls may land would move the inner loops off their
  # alignment, a fifth slower, and the system's start files lack them, so no process would check them. Start files need
  # not be marked for the shadow stack either, and one object without the mark takes it away unless the linker is told.
  target_compile_options(pictra_flags INTERFACE -fcf-protection=return)
  target_link_options(pictra_flags INTERFACE -Wl,-z,shstk)
  # A table of functions needs a relocation an entry, 24 bytes each; packed, 64 entries share one of 8 bytes.
  include(CheckLinkerFlag)
  check_linker_flag(C -Wl,-z,pack-relative-relocs PICTRA_PACKED_RELOCATIONS)
  if(PICTRA_PACKED_RELOCATIONS)
    target_link_options(pictra_flags INTERFACE -Wl,-z,pack-relative-relocs)
  endif()
endif()

# Equal sources give equal files wherever they are built: no path of the tree gets into them.
target_compile_options(pictra_flags INTERFACE -ffile-prefix-map=${PROJECT_BINARY_DIR}=.
                                              -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
