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
endif()
