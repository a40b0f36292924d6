target_sources(pictra_objects PRIVATE
  geometry/crop.cpp
  geometry/flip.cpp
  geometry/rect_copier.cpp
  geometry/rotate.cpp
)
pictra_add_kernels(geometry/kernels.cpp)
