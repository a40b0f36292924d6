# What is installed, where, and with which component. A component is a Debian package of the same name.
include(CMakePackageConfigHelpers)
set(pictra_library_package libpictra${PROJECT_VERSION_MAJOR})
set(pictra_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/pictra)
set(pictra_pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(pictra_codec_dir ${CMAKE_INSTALL_LIBDIR}/pictra)
set(pictra_fragment_dir ${CMAKE_INSTALL_DATADIR}/pictra/codecs.d)
if(PICTRA_PACKAGING) # where the library reads it
  set(pictra_config_file /etc/system/config/img.conf)
else()
  set(pictra_config_file ${CMAKE_INSTALL_SYSCONFDIR}/pictra/img.conf)
endif()

install(TARGETS pictra EXPORT pictra
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${pictra_library_package} NAMELINK_COMPONENT libpictra-dev)
install(DIRECTORY include/pictra DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT libpictra-dev)

# For find_package. One soname is one major version, and any release of it serves a program built with an older one.
install(EXPORT pictra NAMESPACE pictra:: FILE pictra-targets.cmake
  DESTINATION ${pictra_package_dir} COMPONENT libpictra-dev)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/generated/pictra-config-version.cmake
  COMPATIBILITY SameMajorVersion)
configure_package_config_file(cmake/pictra-config.cmake.in ${PROJECT_BINARY_DIR}/generated/pictra-config.cmake
  INSTALL_DESTINATION ${pictra_package_dir} PATH_VARS pictra_codec_dir pictra_config_file)
install(FILES ${PROJECT_BINARY_DIR}/generated/pictra-config.cmake
              ${PROJECT_BINARY_DIR}/generated/pictra-config-version.cmake
  DESTINATION ${pictra_package_dir} COMPONENT libpictra-dev)

# For pkg-config. Paths count from the file itself, so that an installation can be moved; absolute ones stay.
file(RELATIVE_PATH pictra_up /${pictra_pkgconfig_dir} /)
string(REGEX REPLACE "(.*)/$" "\${pcfiledir}/\\1" pictra_prefix "${pictra_up}")
if(PICTRA_PACKAGING) # pkg-config leaves the directories of the system out only where they are called by their names
  set(pictra_prefix ${CMAKE_INSTALL_PREFIX})
endif()
foreach(name CMAKE_INSTALL_INCLUDEDIR CMAKE_INSTALL_LIBDIR pictra_codec_dir pictra_config_file)
  cmake_path(ABSOLUTE_PATH ${name} BASE_DIRECTORY "\${prefix}" OUTPUT_VARIABLE pc_${name})
endforeach()
function(pictra_install_pkgconfig name)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/generated/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/generated/${name}.pc DESTINATION ${pictra_pkgconfig_dir} COMPONENT libpictra-dev)
endfunction()
pictra_install_pkgconfig(pictra)

# Installs a module and, for packages, the section that describes it. Sections are put together in the order of their
# files' names; the numbers leave room between the modules.
function(pictra_install_module name package section)
  if(NOT package)
    set(package pictra-codecs)
  endif()
  install(TARGETS pictra_${name} LIBRARY DESTINATION ${pictra_codec_dir} COMPONENT ${package})
  if(NOT PICTRA_PACKAGING)
    return()
  endif()
  get_property(rank GLOBAL PROPERTY pictra_module_rank)
  math(EXPR rank "${rank} + 5")
  set_property(GLOBAL PROPERTY pictra_module_rank ${rank})
  if(rank LESS 10)
    set(rank 0${rank})
  endif()
  set_property(GLOBAL APPEND PROPERTY pictra_module_packages ${package})
  string(REPLACE "@module_dir@" "${CMAKE_INSTALL_FULL_LIBDIR}/pictra" section "${section}")
  file(WRITE ${PROJECT_BINARY_DIR}/generated/codecs.d/${rank}-${name}.conf "${section}")
  install(FILES ${PROJECT_BINARY_DIR}/generated/codecs.d/${rank}-${name}.conf
    DESTINATION ${pictra_fragment_dir} COMPONENT ${package})
endfunction()

# Installs the configuration of all modules, with the place of the modules in it. That is known when it is installed.
function(pictra_install_config template)
  if(PICTRA_PACKAGING)
    return()
  endif()
  file(WRITE ${PROJECT_BINARY_DIR}/generated/img.conf.in "${template}")
  install(CODE "
    set(module_dir \"${pictra_codec_dir}\")
    set(config_file \"${pictra_config_file}\")
    foreach(path module_dir config_file)
      cmake_path(ABSOLUTE_PATH \${path} BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
    endforeach()
    configure_file(\"${PROJECT_BINARY_DIR}/generated/img.conf.in\" \"\$ENV{DESTDIR}\${config_file}\" @ONLY)
  " COMPONENT pictra-codecs)
endfunction()
