# Options, warnings, sanitizers and hardening of the project's own targets. Nothing here is global, so
# that the tree can be added to another build.

option(INSTALL_SIM "Install the stand-in of the storage service" OFF)
option(OSTREL_WERROR "Stop at a warning, as the presets do" OFF)
set(OSTREL_SANITIZE "" CACHE STRING "Sanitizers for the whole build, as for -fsanitize=")
option(OSTREL_JOIN_SOURCES "Compile the sources of a library together, which takes half the time" OFF)
set(OSTREL_DEBUG_INFO "" CACHE STRING "Debug information of the product, as for the compiler")
set(release_build OFF)
if(CMAKE_BUILD_TYPE MATCHES "^(Release|RelWithDebInfo|MinSizeRel)$" AND NOT OSTREL_SANITIZE)
  set(release_build ON)
endif()
option(OSTREL_HARDEN "Harden the product as a distribution does; for an optimising build"
  ${release_build})
if(OSTREL_HARDEN AND OSTREL_SANITIZE)
  message(FATAL_ERROR "OSTREL_HARDEN hides from OSTREL_SANITIZE what it looks for: choose one")
endif()

# For every target of the project, tests included.
add_library(ostrel_options INTERFACE)
target_compile_options(ostrel_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion $<$<BOOL:${OSTREL_WERROR}>:-Werror>)
if(OSTREL_JOIN_SOURCES)
  # What one source keeps to itself is in a header for the compiler then.
  target_compile_options(ostrel_options INTERFACE
    $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
endif()
if(OSTREL_SANITIZE)
  target_compile_options(ostrel_options INTERFACE
    -fsanitize=${OSTREL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(ostrel_options INTERFACE -fsanitize=${OSTREL_SANITIZE})
endif()

# For what is installed or stands in for it: util/ and sim/.
add_library(ostrel_product INTERFACE)
target_link_libraries(ostrel_product INTERFACE ostrel_options)
target_compile_options(ostrel_product INTERFACE ${OSTREL_DEBUG_INFO})
if(OSTREL_HARDEN)
  include(CheckPIESupported)
  check_pie_supported(LANGUAGES CXX)
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  target_compile_options(ostrel_product INTERFACE
    -fstack-protector-strong -fno-omit-frame-pointer)
  if(NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")  # a distribution may ask for more
    target_compile_options(ostrel_product INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  endif()
  # For binaries alone: a library would hand it on to whoever links it. The build id is what a
  # debugger finds information by that was split off.
  set(OSTREL_BINARY_LINK_OPTIONS -Wl,-z,relro -Wl,-z,now -Wl,--build-id)
endif()

find_package(ZLIB REQUIRED)
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(libdeflate REQUIRED IMPORTED_TARGET libdeflate)
set(CURSES_NEED_WIDE TRUE)
find_package(Curses REQUIRED)
find_package(PkgConfig)
if(PkgConfig_FOUND)
  pkg_check_modules(FUSE3 IMPORTED_TARGET fuse3>=3.12)  # what needs it is left out without it
endif()

# A program of the product: its binary stands in bin/ of the build folder.
function(ostrel_program target)
  target_link_libraries(${target} PRIVATE ostrel_product)
  target_link_options(${target} PRIVATE ${OSTREL_BINARY_LINK_OPTIONS})
  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
endfunction()
