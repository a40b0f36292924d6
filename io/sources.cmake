target_sources(pictra_objects PRIVATE
  io/buffer.cpp
  io/fd_backend.cpp
  io/mem_backend.cpp
  io/read.cpp
  io/stream.cpp
  io/write.cpp
)
