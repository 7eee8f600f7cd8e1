# quarvel_tidy: compiles the library's sources once more behind clang-tidy, each again only when it or what it includes
# has changed. Not built unless asked for; there only where clang-tidy is installed.
find_program(CLANG_TIDY_PROGRAM clang-tidy)
if(CLANG_TIDY_PROGRAM AND NOT QUARVEL_SANITIZE)
  get_target_property(sources quarvel_core SOURCES)
  add_library(quarvel_tidy OBJECT EXCLUDE_FROM_ALL ${sources})
  target_link_libraries(quarvel_tidy
    PRIVATE Tessvik quarvel_flags quarvel_inflate ZLIB::ZLIB PkgConfig::minizip OpenSSL::Crypto Threads::Threads)
  target_include_directories(quarvel_tidy PRIVATE ${PROJECT_SOURCE_DIR})
  set_target_properties(quarvel_tidy PROPERTIES CXX_CLANG_TIDY "${CLANG_TIDY_PROGRAM};-quiet")
endif()
