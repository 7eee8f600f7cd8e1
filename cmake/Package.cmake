# Debian packages, one per component; scripts/package builds them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "The Quarvel authors")
set(CPACK_PACKAGE_CONTACT "The Quarvel authors <maintainers@quarvel.example>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_COMPONENTS_ALL library development tools simulator)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
# Debug symbols become packages of their own, which also strips the files.
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

# Each component tells in its description's first line what it is; there is no summary for all of them.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libquarvel1)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
# The maker's pen library provides this name in its place.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS libtessvik)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "Shared library that installs bundles onto digital pens
It loads and verifies signed application bundles and installs them on the
pens that are connected. It needs the pen library libTessvik, which the
package libtessvik stands for: the maker's, or the simulated pens of
tessvik-simulator.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libquarvel-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Header, CMake package and documents of Quarvel
What a host application that installs bundles onto digital pens is built
with: the header, a CMake package, a pkg-config file, the guide for hosts and
examples.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME quarvel-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DEPENDS library)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "Commands that install and make bundles for digital pens
quarvel installs bundles on pens and gets pens back on their feet;
quarvel-bundle makes and checks bundles.")
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_NAME tessvik-simulator)
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_SECTION utils)
foreach(relation PROVIDES CONFLICTS REPLACES)
  set(CPACK_DEBIAN_SIMULATOR_PACKAGE_${relation} libtessvik)
endforeach()
set(CPACK_COMPONENT_SIMULATOR_DESCRIPTION "Simulated digital pens in place of the pen library
A drop-in libTessvik whose pens are files, and tessvik-sim to keep them.")

set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
# The loader's cache is renewed by a trigger.
foreach(component LIBRARY TOOLS SIMULATOR)
  set(CPACK_DEBIAN_${component}_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
endforeach()

# describe_package(COMPONENT FILE...): its change log, its licences and what it is linked with go into the package.
function(describe_package component)
  string(TOUPPER ${component} upper)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
  list(TRANSFORM ARGN REPLACE "(.+)" "\"\\1\"" OUTPUT_VARIABLE files)
  list(JOIN files " " files)
  install(CODE "
    set(prefix \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
    file(GLOB pages \"\${prefix}/${CMAKE_INSTALL_MANDIR}/man1/*.1\")
    foreach(page IN LISTS pages)
      execute_process(COMMAND gzip -9nf \"\${page}\" COMMAND_ERROR_IS_FATAL ANY)
    endforeach()
    execute_process(COMMAND \"${PROJECT_SOURCE_DIR}/packaging/describe.py\" ${package} ${version}
      \"${PROJECT_SOURCE_DIR}\" \"\${prefix}\" ${files} COMMAND_ERROR_IS_FATAL ANY)"
    COMPONENT ${component})
  install(FILES packaging/lintian/${package} DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
    COMPONENT ${component})
endfunction()
if(QUARVEL_PACKAGE)
  describe_package(library $<TARGET_FILE:Quarvel>)
  describe_package(development)
  describe_package(tools $<TARGET_FILE:quarvel> $<TARGET_FILE:quarvel-bundle>)
  describe_package(simulator $<TARGET_FILE:Tessvik> $<TARGET_FILE:tessvik-sim>)
endif()
include(CPack)
