# What `cmake --install` lays down, by component: library, development, tools, simulator. The tree may be moved as a
# whole.
include(CMakePackageConfigHelpers)

install(TARGETS Quarvel EXPORT QuarvelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES installer/QuarvelPublic.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quarvel COMPONENT development)

set(cmake_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Quarvel)
install(EXPORT QuarvelTargets NAMESPACE Quarvel:: DESTINATION ${cmake_folder} COMPONENT development)
configure_package_config_file(packaging/QuarvelConfig.cmake.in ${PROJECT_BINARY_DIR}/QuarvelConfig.cmake
  INSTALL_DESTINATION ${cmake_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QuarvelConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QuarvelConfig.cmake ${PROJECT_BINARY_DIR}/QuarvelConfigVersion.cmake
  DESTINATION ${cmake_folder} COMPONENT development)

file(RELATIVE_PATH prefix_from_pc /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(packaging/quarvel.pc.in ${PROJECT_BINARY_DIR}/quarvel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quarvel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# For those who write hosts: what to read, hosts to start from, and the header that a test of theirs moves pens with.
set(documents ${CMAKE_INSTALL_DATADIR}/doc/libquarvel-dev)
install(FILES docs/abi.md docs/architecture.md docs/architecture.svg docs/bundle-format.md docs/host-guide.md docs/log.md
  docs/simulator.md DESTINATION ${documents} COMPONENT development)
install(FILES examples/install.c examples/install.cpp examples/install.py DESTINATION ${documents}/examples
  COMPONENT development)
install(DIRECTORY examples/bundle examples/consumer DESTINATION ${documents}/examples COMPONENT development)
install(FILES simulator/PenBench.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quarvel COMPONENT development)

install(TARGETS Tessvik LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT simulator)
install(TARGETS TessvikTrace LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT tools)
foreach(program IN ITEMS quarvel quarvel-bundle tessvik-sim)
  set(component tools)
  if(program STREQUAL "tessvik-sim")
    set(component simulator)
  endif()
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${component})
  endif()
  if(EXISTS ${PROJECT_SOURCE_DIR}/docs/man/${program}.1)
    install(FILES docs/man/${program}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${component})
  endif()
  if(EXISTS ${PROJECT_SOURCE_DIR}/packaging/completions/bash/${program})
    set(completions ${PROJECT_SOURCE_DIR}/packaging/completions)
    set(share ${CMAKE_INSTALL_DATADIR})
    install(FILES ${completions}/bash/${program} DESTINATION ${share}/bash-completion/completions COMPONENT ${component})
    install(FILES ${completions}/zsh/_${program} DESTINATION ${share}/zsh/vendor-completions COMPONENT ${component})
    install(FILES ${completions}/fish/${program}.fish DESTINATION ${share}/fish/vendor_completions.d
      COMPONENT ${component})
  endif()
endforeach()
