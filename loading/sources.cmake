target_sources(pictra_objects PRIVATE loading/load_resize.cpp)
