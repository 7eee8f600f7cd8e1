# 32-bit x86 with this machine's own compiler, against the Debian packages that scripts/lib/sysroot-i386 unpacks below
# the build folder. The programs run in place: they name the unpacked loader and libraries.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)

get_filename_component(project_root ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)
set(CMAKE_SYSROOT ${project_root}/build/i386-root/sysroot)
set(gcc_folder ${CMAKE_SYSROOT}/usr/lib/gcc/i686-linux-gnu/12)
set(library_folders ${CMAKE_SYSROOT}/usr/lib/i386-linux-gnu ${CMAKE_SYSROOT}/lib/i386-linux-gnu)

set(common_flags "-m32 -B${gcc_folder} -isystem ${CMAKE_SYSROOT}/usr/include/i386-linux-gnu")
set(CMAKE_C_FLAGS_INIT "${common_flags}")
set(CMAKE_CXX_FLAGS_INIT "${common_flags} -isystem ${CMAKE_SYSROOT}/usr/include/i386-linux-gnu/c++/12")

# The older kind of run path also serves the libraries that the unpacked libraries need.
set(link_flags "-L${gcc_folder} -Wl,--disable-new-dtags -Wl,--dynamic-linker=${CMAKE_SYSROOT}/lib/ld-linux.so.2")
foreach(folder IN LISTS library_folders)
  string(APPEND link_flags " -L${folder} -Wl,-rpath,${folder}")
endforeach()
set(QUARVEL_RUNTIME_FOLDERS ${library_folders})  # for programs with the newer kind
set(CMAKE_EXE_LINKER_FLAGS_INIT "${link_flags}")
string(REGEX REPLACE "-Wl,--dynamic-linker=[^ ]*" "" shared_flags "${link_flags}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${shared_flags}")

set(CMAKE_FIND_ROOT_PATH ${CMAKE_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/i386-linux-gnu/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
