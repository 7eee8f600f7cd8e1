# Debian packages, one per component; scripts/package builds them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "The Quarvel authors")
set(CPACK_PACKAGE_CONTACT "The Quarvel authors <maintainers@quarvel.example>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_COMPONENTS_ALL library development tools simulator)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libquarvel1)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION
  "Installs signed application bundles onto digital pens\n The shared library. It needs the pen library libTessvik: the maker's, or the simulated\n pens of tessvik-simulator.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libquarvel-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "Header, CMake package and pkg-config file of Quarvel\n What a host application is built with.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME quarvel-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DEPENDS library)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
  "Commands that install and make bundles for digital pens\n quarvel installs bundles from the command line, quarvel-bundle makes and checks them.")
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_NAME tessvik-simulator)
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_SIMULATOR_DESCRIPTION
  "Simulated digital pens in place of the pen library\n A drop-in libTessvik whose pens are files, and tessvik-sim to keep them.")
include(CPack)
