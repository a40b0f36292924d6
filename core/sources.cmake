target_sources(pictra_objects PRIVATE
  core/abi.cpp
  core/config.cpp
  core/cpu.cpp
  core/handle.cpp
  core/log.cpp
  core/module.cpp
  core/record.cpp
  core/registry.cpp
)
# Whoever puts a syslog of their own before the C library's, to collect messages, gets ours, too: not its fortified double.
set_source_files_properties(core/log.cpp PROPERTIES COMPILE_OPTIONS -U_FORTIFY_SOURCE)
