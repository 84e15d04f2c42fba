# The device: 32-bit MIPS, little-endian, with the libraries that scripts/sysroot.sh has unpacked.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(CMAKE_C_COMPILER mipsel-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mipsel-linux-gnu-g++)

set(APP_SYSROOT "$ENV{APP_SYSROOT}" CACHE PATH "Where scripts/sysroot.sh has unpacked the target's libraries")
if(NOT APP_SYSROOT)
    set(APP_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/mipsel-sysroot)
endif()
get_filename_component(APP_SYSROOT ${APP_SYSROOT} ABSOLUTE)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES APP_SYSROOT)
set(SYSROOT_LIBRARIES ${APP_SYSROOT}/usr/lib/mipsel-linux-gnu)
if(NOT EXISTS ${SYSROOT_LIBRARIES})
    message(FATAL_ERROR "There are no libraries of the device in ${APP_SYSROOT}: scripts/sysroot.sh fetches them")
endif()

# Not --sysroot: the compiler brings the headers of the C library, and looks beside itself.
set(CMAKE_FIND_ROOT_PATH ${APP_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_LIBRARY_ARCHITECTURE mipsel-linux-gnu)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${APP_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${SYSROOT_LIBRARIES}/pkgconfig:${APP_SYSROOT}/usr/share/pkgconfig)
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-L${SYSROOT_LIBRARIES} -Wl,-rpath-link,${SYSROOT_LIBRARIES}:${APP_SYSROOT}/lib/mipsel-linux-gnu")
# The linker would keep segments 64 KiB apart in the file, for kernels with pages that large.
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,-z,max-page-size=16384")
set(CMAKE_SHARED_LINKER_FLAGS_INIT ${CMAKE_EXE_LINKER_FLAGS_INIT})
set(CMAKE_MODULE_LINKER_FLAGS_INIT ${CMAKE_EXE_LINKER_FLAGS_INIT})

find_program(QEMU_MIPSEL qemu-mipsel REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${QEMU_MIPSEL} -L ${APP_SYSROOT})
