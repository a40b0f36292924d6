# Sources that are compiled once per instruction set. base is whatever the compiler targets by default; for each other
# variant the list of features gives the compiler's flags and, through core/variants.inc, what core/cpu.cpp asks the
# CPU for. From the least to the best.
set(PICTRA_ALL_VARIANTS base)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
  list(APPEND PICTRA_ALL_VARIANTS avx2 avx512)
endif()
set(PICTRA_VARIANTS ${PICTRA_ALL_VARIANTS} CACHE STRING "Instruction sets to build the inner loops for")

# Plain loops unrolled by -O3 are three times as long and hardly faster. Unwind tables would be a tenth of these objects,
# and neither exceptions nor callouts pass through these loops. The alignment keeps a loop's speed from changing, by up to
# a fifth, with the length of the functions before it. -fstack-protector-strong would check each loop that takes the address
# of a pixel, 20 KB of it; the plain kind checks those with arrays.
set(PICTRA_FLAGS_base $<$<CONFIG:Release>:-O2>)
set(PICTRA_FLAGS $<$<CONFIG:Release>:-fno-asynchronous-unwind-tables> $<$<CONFIG:Release>:-falign-functions=32>
    $<$<BOOL:${PICTRA_STACK_PROTECTOR}>:-fstack-protector>)
set(PICTRA_FEATURES_avx2 avx2 bmi2)
set(PICTRA_FEATURES_avx512 ${PICTRA_FEATURES_avx2} avx512f avx512bw avx512dq avx512vl avx512vbmi avx512vnni)

set(rows "")
foreach(variant ${PICTRA_VARIANTS})
  list(JOIN PICTRA_FEATURES_${variant} ", " features)
  string(APPEND rows "VARIANT(${variant}, ${features})\n")
endforeach()
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/generated/core/variants.inc CONTENT "${rows}#undef VARIANT\n" @ONLY)
target_include_directories(pictra_objects PUBLIC ${PROJECT_BINARY_DIR}/generated)

# Adds a source once per variant, with IMG_TARGET naming the variant's namespace.
function(pictra_add_variants source)
  foreach(variant ${PICTRA_VARIANTS})
    string(REPLACE ".cpp" "_${variant}.cpp" generated ${PROJECT_BINARY_DIR}/generated/${source})
    file(CONFIGURE OUTPUT ${generated} CONTENT "#define IMG_TARGET ${variant}\n#include \"${source}\"\n" @ONLY)
    list(TRANSFORM PICTRA_FEATURES_${variant} PREPEND -m OUTPUT_VARIABLE flags)
    set_source_files_properties(${generated} PROPERTIES COMPILE_OPTIONS "${flags};${PICTRA_FLAGS};${PICTRA_FLAGS_${variant}}")
    target_sources(pictra_objects PRIVATE ${generated})
  endforeach()
endfunction()
