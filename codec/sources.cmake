target_sources(pictra_objects PRIVATE
  codec/decode.cpp
  codec/decode_callouts.cpp
  codec/encode.cpp
  codec/encode_callouts.cpp
  codec/load.cpp
  codec/write.cpp
)
