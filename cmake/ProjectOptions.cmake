# Options, warnings and sanitizers of the project's own targets. Nothing here is global, so that
# the tree can be added to another build.

option(INSTALL_SIM "Install the stand-in of the storage service" OFF)
set(OSTREL_SANITIZE "" CACHE STRING "Sanitizers for the whole build, as for -fsanitize=")

add_library(ostrel_options INTERFACE)
target_compile_options(ostrel_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
if(OSTREL_SANITIZE)
  target_compile_options(ostrel_options INTERFACE
    -fsanitize=${OSTREL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(ostrel_options INTERFACE -fsanitize=${OSTREL_SANITIZE})
endif()

find_package(ZLIB REQUIRED)
find_package(Threads REQUIRED)
set(CURSES_NEED_WIDE TRUE)
find_package(Curses REQUIRED)

# A program of the product: its binary stands in bin/ of the build folder.
function(ostrel_program target)
  target_link_libraries(${target} PRIVATE ostrel_options)
  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
endfunction()
