# The inner loops ("kernels") are compiled once per variant, that is, per instruction set: an object library each. base
# is whatever the compiler targets by default. The features of the others give the compiler's flags and, through the
# generated header core/variants.h, what core/cpu.cpp asks the CPU for. Listed from the least to the best.
set(PICTRA_ALL_VARIANTS base)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
  list(APPEND PICTRA_ALL_VARIANTS avx2 avx512)
elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL aarch64)
  list(APPEND PICTRA_ALL_VARIANTS neon) # which each of them has: base is there to compare with
endif()
set(PICTRA_VARIANTS ${PICTRA_ALL_VARIANTS} CACHE STRING "Instruction sets to build the inner loops for")

# The file of the vocabulary (simd/) that a variant is compiled with; plain.h has no registers.
set(PICTRA_WORDS_base plain)
set(PICTRA_WORDS_avx2 avx2)
set(PICTRA_WORDS_avx512 avx512)
set(PICTRA_WORDS_neon neon)

set(PICTRA_FEATURES_avx2 avx2 bmi2)
set(PICTRA_FEATURES_avx512 ${PICTRA_FEATURES_avx2} avx512f avx512bw avx512dq avx512vl avx512vbmi avx512vnni)

# -O3 would unroll the plain loops of base to three times their length, for hardly any speed. The alignments keep the
# speed of short loops from changing, by up to half, with where they are put: those over registers are a few
# instructions long. Unwind tables would be a tenth of these objects, and neither exceptions nor callouts pass through
# these loops. -fstack-protector-strong would check each loop that takes the address of a pixel, 20 KB of it; the plain
# kind checks those with arrays. These flags are linked after pictra_flags, so that they override them.
set(PICTRA_FLAGS_base $<$<CONFIG:Release>:-O2>)
set(PICTRA_FLAGS_avx2 $<$<CONFIG:Release>:-falign-loops=32>)
set(PICTRA_FLAGS_avx512 $<$<CONFIG:Release>:-falign-loops=32>)
add_library(pictra_kernel_flags INTERFACE)
target_compile_options(pictra_kernel_flags INTERFACE
  $<$<CONFIG:Release>:-fno-asynchronous-unwind-tables> $<$<CONFIG:Release>:-falign-functions=32>
  $<$<BOOL:${PICTRA_STACK_PROTECTOR}>:-fstack-protector>)

# Library code: no exceptions, no run-time types, nothing exported that is not marked.
function(pictra_add_objects name)
  add_library(${name} OBJECT)
  target_link_libraries(${name} PUBLIC pictra_flags)
  target_compile_options(${name} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)
  target_include_directories(${name} PUBLIC ${PROJECT_BINARY_DIR}/generated)
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden
                                           VISIBILITY_INLINES_HIDDEN ON)
endfunction()

# pictra_add_variants(NAME LIST SOURCE...): an object library per variant, NAME_<variant>, with IMG_TARGET naming the
# variant's namespace. The variable LIST gets their objects.
function(pictra_add_variants name objects)
  set(all "")
  foreach(variant ${PICTRA_VARIANTS})
    pictra_add_objects(${name}_${variant})
    target_sources(${name}_${variant} PRIVATE ${ARGN})
    list(TRANSFORM PICTRA_FEATURES_${variant} PREPEND -m OUTPUT_VARIABLE flags)
    target_link_libraries(${name}_${variant} PRIVATE pictra_kernel_flags)
    target_compile_options(${name}_${variant} PRIVATE ${flags} ${PICTRA_FLAGS_${variant}})
    target_compile_definitions(${name}_${variant} PRIVATE
      IMG_TARGET=${variant} IMG_SIMD="simd/${PICTRA_WORDS_${variant}}.h"
      IMG_VECTORS=$<NOT:$<STREQUAL:${PICTRA_WORDS_${variant}},plain>>)
    list(APPEND all $<TARGET_OBJECTS:${name}_${variant}>)
  endforeach()
  set(${objects} ${all} PARENT_SCOPE)
endfunction()
pictra_add_variants(pictra PICTRA_KERNELS)

set(each "")
set(features "")
foreach(variant ${PICTRA_VARIANTS})
  list(JOIN PICTRA_FEATURES_${variant} ", " names)
  string(APPEND each " EACH(${variant} __VA_OPT__(, ) __VA_ARGS__)")
  string(APPEND features "#define IMG_FEATURES_${variant} ${names}\n")
endforeach()
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/generated/core/variants.h
     CONTENT "#pragma once\n#define IMG_FOR_EACH_VARIANT(EACH, ...)${each}\n${features}" @ONLY)

# Adds sources to every variant of the core.
function(pictra_add_kernels)
  foreach(variant ${PICTRA_VARIANTS})
    target_sources(pictra_${variant} PRIVATE ${ARGN})
  endforeach()
endfunction()
