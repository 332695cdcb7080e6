# Toolchain of Debian's cross compilers. It needs
#   VD_PROCESSOR   GNU's name of the processor, such as aarch64 or s390x
#   CMAKE_SYSROOT  a directory with the unpacked packages of that architecture, libudev-dev among them
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${VD_PROCESSOR})
set(CMAKE_CXX_COMPILER ${VD_PROCESSOR}-linux-gnu-g++)
# CMake configures its test of the compiler separately, and must pass this variable on.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VD_PROCESSOR)

# Use the programs of this machine, but only the libraries of the other architecture.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/${VD_PROCESSOR}-linux-gnu/pkgconfig)
