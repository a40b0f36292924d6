target_sources(pictra_objects PRIVATE
)
