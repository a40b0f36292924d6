# Debian packages: the library, its development files, the program, the light codec modules together and each with a
# large library of its own alone. A trigger of the library's package puts the configuration together whenever a package
# adds or removes a section.
set(update_codecs ${PROJECT_BINARY_DIR}/generated/pictra-update-codecs)
set(control_dir ${PROJECT_BINARY_DIR}/generated/debian)
cmake_path(ABSOLUTE_PATH pictra_fragment_dir BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} OUTPUT_VARIABLE PICTRA_FRAGMENTS)
configure_file(packaging/update-codecs.in ${update_codecs} @ONLY)
install(PROGRAMS ${update_codecs} DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT ${pictra_library_package})
foreach(file postinst prerm triggers shlibs)
  configure_file(packaging/${file}.in ${control_dir}/${file} @ONLY)
  list(APPEND control_files ${control_dir}/${file})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME pictra)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PACKAGE_CONTACT "The pictra developers <pictra@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/debs)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
  WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})

# pictra_package(COMPONENT SECTION SUMMARY TEXT [DEPENDS]): the package of a component, with its licence.
function(pictra_package component section summary text)
  string(TOUPPER ${component} key)
  set(depends ${ARGN})
  if(PICTRA_PACKED_RELOCATIONS AND NOT component STREQUAL libpictra-dev)
    list(APPEND depends "libc6 (>= 2.36)") # the one that understands them, of which dpkg-shlibdeps does not know
  endif()
  list(JOIN depends ", " depends)
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${component} PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_DESCRIPTION "${summary}\n${text}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_PACKAGE_DEPENDS "${depends}" PARENT_SCOPE)
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
  install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${component} COMPONENT ${component} RENAME copyright)
endfunction()

# The other library: what depends on it, and that its name is known to the loader at once.
set(pictra_kit_package libpictra-kit${PROJECT_VERSION_MAJOR})
file(WRITE ${control_dir}/kit/shlibs
  "libpictra-kit ${PROJECT_VERSION_MAJOR} ${pictra_kit_package} (>= ${PROJECT_VERSION})\n")
file(WRITE ${control_dir}/kit/triggers "activate-noawait ldconfig\n")

string(TOUPPER ${pictra_kit_package} kit_key)
set(CPACK_DEBIAN_${kit_key}_PACKAGE_CONTROL_EXTRA ${control_dir}/kit/shlibs ${control_dir}/kit/triggers)
set(CPACK_DEBIAN_${kit_key}_PACKAGE_CONTROL_STRICT_PERMISSION ON)
string(TOUPPER ${pictra_library_package} library_key)
set(CPACK_DEBIAN_${library_key}_PACKAGE_CONTROL_EXTRA ${control_files})
set(CPACK_DEBIAN_${library_key}_PACKAGE_CONTROL_STRICT_PERMISSION ON) # whatever the umask of the tree was
set(CPACK_DEBIAN_${library_key}_PACKAGE_RECOMMENDS pictra-codecs)
set(CPACK_DEBIAN_LIBPICTRA-DEV_PACKAGE_SUGGESTS pkg-config)
set(same "${pictra_library_package} (= ${PROJECT_VERSION})")
string(CONCAT about "pictra reads images from files, memory or streams into raw pixel buffers,\n"
  "writes them, and transforms them.")
pictra_package(${pictra_library_package} libs "images into raw pixel buffers, and back - library"
  "${about} It needs the C library alone; file formats\nare codec modules in packages of their own.")
pictra_package(${pictra_kit_package} libs "images into raw pixel buffers, and back - resampling and colour"
  "${about} This library scales them with real filters\nand knows colour profiles." ${same})
pictra_package(libpictra-dev libdevel "images into raw pixel buffers, and back - development files"
  "${about} This package has the headers for C and C++,\nthe files for CMake and pkg-config, and examples."
  ${same} "${pictra_kit_package} (= ${PROJECT_VERSION})")

get_property(heavy_packages GLOBAL PROPERTY pictra_module_packages)
list(REMOVE_DUPLICATES heavy_packages)
list(REMOVE_ITEM heavy_packages pictra-codecs)
list(SORT heavy_packages)
list(JOIN heavy_packages ", " recommends)
set(CPACK_DEBIAN_PICTRA_PACKAGE_RECOMMENDS "${recommends}")
string(CONCAT about_program "The program shows, converts, rotates, crops and resizes pictures, many at\n"
  "once, and decodes each one in a confined process.")
pictra_package(pictra graphics "show, convert and transform pictures" "${about_program}"
  ${same} "pictra-codecs (= ${PROJECT_VERSION})")
pictra_package(pictra-codecs libs "images into raw pixel buffers, and back - common formats"
  "${about} This package has the codec modules for\nPNG, PNM, BMP, icons, TGA and QOI." ${same})
foreach(package ${heavy_packages})
  string(REGEX REPLACE "^pictra-codec-" "" format ${package})
  string(TOUPPER ${format} title)
  string(REPLACE WEBP WebP title ${title})
  pictra_package(${package} libs "images into raw pixel buffers, and back - ${title}"
    "${about} This package has the codec module for ${title}." ${same})
endforeach()

# What developers read.
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libpictra-dev COMPONENT libpictra-dev
  PATTERN CMakeLists.txt EXCLUDE)
include(CPack)
