# Cross build for the head unit: 32-bit ARM Linux, hard-float EABI (Debian's
# g++-arm-linux-gnueabihf). Test executables run under qemu-arm with the target's
# runtime libraries, so that ctest works from the build directory as it does natively.
#
#   cmake -S . -B build-arm -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/arm-linux-gnueabihf.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(POSITIONING_ARM_TRIPLE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${POSITIONING_ARM_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${POSITIONING_ARM_TRIPLE}-g++)

# The target's headers and libraries. Prefixes given in CMAKE_PREFIX_PATH (GoogleTest
# built for the target, an installed package) hold target files too: searched as roots.
set(POSITIONING_ARM_SYSROOT /usr/${POSITIONING_ARM_TRIPLE} CACHE PATH "Runtime root of the target")
list(APPEND CMAKE_FIND_ROOT_PATH ${POSITIONING_ARM_SYSROOT} ${CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Host pkg-config files describe host libraries: look only in the target's.
set(ENV{PKG_CONFIG_LIBDIR} ${POSITIONING_ARM_SYSROOT}/lib/pkgconfig:/usr/lib/${POSITIONING_ARM_TRIPLE}/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "")

# qemu-arm -L <sysroot>, through a script that also catches the programs' re-execution
# of themselves (death tests).
find_program(POSITIONING_QEMU_ARM qemu-arm)
if(POSITIONING_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/qemu-arm-run.sh -L ${POSITIONING_ARM_SYSROOT})
endif()
