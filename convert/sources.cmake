target_sources(pictra_objects PRIVATE
  convert/copy.cpp
  convert/expand.cpp
  convert/pairs.cpp
  convert/routines.cpp
  convert/transform.cpp
)
pictra_add_kernels(convert/kernels.cpp convert/palette_kernels.cpp)
