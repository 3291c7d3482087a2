# Warnings every target of ours gets (not third-party code).
add_library(pw_warnings INTERFACE)
target_compile_options(pw_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast
  -Wcast-align -Woverloaded-virtual -Wconversion -Wsign-conversion
  -Wno-unused-parameter)
