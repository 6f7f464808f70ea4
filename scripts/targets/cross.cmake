# Debian's cross compiler for TRIPLET with headers and libraries from the root file system ROOT, in which
# the tests run:
#
#   cmake -DCMAKE_TOOLCHAIN_FILE=scripts/targets/cross.cmake -DTRIPLET=s390x-linux-gnu -DROOT=... ...
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TRIPLET ROOT)
set(CMAKE_SYSTEM_NAME Linux)
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR ${TRIPLET})
set(CMAKE_C_COMPILER ${TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${TRIPLET}-g++)
set(CMAKE_SYSROOT ${ROOT})
# The compiler for 32-bit x86 is named i686, Debian's folders for it i386.
string(REGEX REPLACE "^i686" "i386" CMAKE_LIBRARY_ARCHITECTURE ${TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(Python3_EXECUTABLE /usr/bin/python3) # for tests, that of the root
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${ROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${ROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig:${ROOT}/usr/share/pkgconfig)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/enter ${ROOT})
