# The shared library. Its objects are targets of their own, which the tests link too: they reach internals and can make
# allocations fail.
include(cmake/variants.cmake)
pictra_add_objects(pictra_objects)
target_sources(pictra_objects INTERFACE ${PICTRA_KERNELS})
foreach(folder core io convert codec geometry scale loading)
  include(${folder}/sources.cmake)
endforeach()

# Linked by the C driver and with every symbol accounted for, so that nothing of the C++ run time can creep in. CMake
# would add that run time because the objects are C++.
set(CMAKE_CXX_IMPLICIT_LINK_LIBRARIES "")
set(CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES "")
add_library(pictra SHARED $<TARGET_OBJECTS:pictra_objects> ${PICTRA_KERNELS})
target_include_directories(pictra PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
                                         $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(pictra PRIVATE $<BUILD_INTERFACE:pictra_flags>)
target_link_options(pictra PRIVATE -static-libgcc -Wl,--no-as-needed)
if(NOT PICTRA_SANITIZE)
  target_link_options(pictra PRIVATE -Wl,-z,defs)
endif()
# The library's calls to its own functions are bound when it is linked, whatever functions a program has. What the list
# names is left to the loader.
set(PICTRA_LEFT_TO_LOADER ${PROJECT_SOURCE_DIR}/cmake/left_to_loader.list)
target_link_options(pictra PRIVATE -Wl,--dynamic-list=${PICTRA_LEFT_TO_LOADER})
set_target_properties(pictra PROPERTIES LINK_DEPENDS ${PICTRA_LEFT_TO_LOADER})
set_target_properties(pictra PROPERTIES LINKER_LANGUAGE C VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
