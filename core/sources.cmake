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
