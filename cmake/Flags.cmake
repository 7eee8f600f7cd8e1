# What every target of this project is compiled and linked with.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)

# An installed tree may be moved as a whole: programs look for the libraries beside them.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(CMAKE_INSTALL_RPATH "$ORIGIN;$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

# What is packaged does not know where or when it was built; a run path that is taken out later leaves its trace.
if(QUARVEL_PACKAGE)
  set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
  add_compile_options(-Wdate-time -ffile-prefix-map=${PROJECT_SOURCE_DIR}=/usr/src/quarvel-${PROJECT_VERSION})
endif()

add_library(quarvel_flags INTERFACE)
target_compile_options(quarvel_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -fstack-protector-strong)
# Files over 2 GiB and times after 2038, also in 32-bit code.
target_compile_definitions(quarvel_flags INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
# Fortified string functions need optimisation; the sanitizers bring their own checks instead.
if(NOT QUARVEL_SANITIZE)
  target_compile_options(quarvel_flags INTERFACE "$<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
endif()
target_link_options(quarvel_flags INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)

if(QUARVEL_SANITIZE)
  add_compile_options(-fsanitize=${QUARVEL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${QUARVEL_SANITIZE})
  # The instrumented standard library's <regex> looks uninitialised to GCC.
  target_compile_options(quarvel_flags INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
endif()
