target_sources(pictra_objects PRIVATE
  core/abi.cpp
  core/record.cpp
)
