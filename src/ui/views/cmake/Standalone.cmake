# Builds the views and their tests in a tree whose src/ui does not include them (yet):
#   cmake -S . -B build/views -DCMAKE_PROJECT_INCLUDE=$PWD/src/ui/views/cmake/Standalone.cmake
# The views' list files return at once when their targets exist, so the regular build may
# add the same directories later. Included right after project(): the targets the views link (pw_platform, pw_warnings) are
# named here and resolved when the build is generated. The sanitizer flags of the top-level
# list file are set after this point, so they are repeated here for the views' directories.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
if(PW_SANITIZE)
  add_compile_options(-fsanitize=${PW_SANITIZE} -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=${PW_SANITIZE})
endif()
add_subdirectory(${CMAKE_SOURCE_DIR}/src/ui/views ${CMAKE_BINARY_DIR}/views-standalone/src)
enable_testing()
add_subdirectory(${CMAKE_SOURCE_DIR}/tests/ui/views ${CMAKE_BINARY_DIR}/views-standalone/tests)
