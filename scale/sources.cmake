target_sources(pictra_objects PRIVATE
  scale/average.cpp
  scale/params.cpp
  scale/reduce.cpp
  scale/resize.cpp
)
pictra_add_kernels(scale/kernels.cpp)
