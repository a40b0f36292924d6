target_sources(pictra_objects PRIVATE
  scale/params.cpp
  scale/reduce.cpp
  scale/resize.cpp
)
pictra_add_kernels(scale/kernels.cpp)
