# Toolchain of Debian's cross compiler for another processor:
#   -DVD_PROCESSOR=aarch64     GNU's name of that processor, or s390x
#   -DCMAKE_SYSROOT=DIRECTORY  where packages of its architecture are unpacked, libudev-dev among them
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${VD_PROCESSOR})
set(CMAKE_CXX_COMPILER ${VD_PROCESSOR}-linux-gnu-g++)
# What CMake compiles to try the compiler is configured on its own.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VD_PROCESSOR)

# Programs are this machine's, libraries are those of the other architecture and never this machine's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/${VD_PROCESSOR}-linux-gnu/pkgconfig)
