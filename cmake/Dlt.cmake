# libdlt for positioning-sim's --log dlt (the daemon path; .dlt files need no libdlt).
# Defines the target positioning::dlt when libdlt is there, for the build machine or,
# cross built, for the target.
#
# Natively: libdlt-dev through pkg-config. Cross built: Debian's package of the target
# (libdlt2 and libdlt-dev for armhf) unpacked into POSITIONING_TARGET_DLT_ROOT
# (scripts/checks/20-arm.sh does it), taken by path: its pkg-config file would add the
# build machine's /usr/include ahead of the cross compiler's headers. The directory
# goes into the programs' run path, so qemu finds the library there.
if(TARGET positioning::dlt)
  return()
endif()
if(CMAKE_CROSSCOMPILING)
  set(POSITIONING_TARGET_DLT_ROOT ${CMAKE_BINARY_DIR}/dlt-sysroot CACHE PATH
    "Debian's libdlt packages for the target, unpacked (dpkg-deb -x)")
  if(POSITIONING_ARM_TRIPLE)
    find_library(POSITIONING_TARGET_DLT_LIBRARY NAMES dlt
      PATHS ${POSITIONING_TARGET_DLT_ROOT}/usr/lib/${POSITIONING_ARM_TRIPLE} NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
    find_path(POSITIONING_TARGET_DLT_INCLUDE dlt.h
      PATHS ${POSITIONING_TARGET_DLT_ROOT}/usr/include/dlt NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  endif()
  if(POSITIONING_TARGET_DLT_LIBRARY AND POSITIONING_TARGET_DLT_INCLUDE)
    find_package(Threads REQUIRED)
    add_library(positioning::dlt INTERFACE IMPORTED)
    set_target_properties(positioning::dlt PROPERTIES
      INTERFACE_INCLUDE_DIRECTORIES ${POSITIONING_TARGET_DLT_INCLUDE}
      INTERFACE_LINK_LIBRARIES "${POSITIONING_TARGET_DLT_LIBRARY};Threads::Threads")
  endif()
else()
  find_package(PkgConfig QUIET)
  if(PkgConfig_FOUND)
    pkg_check_modules(DLT QUIET IMPORTED_TARGET automotive-dlt)
  endif()
  if(DLT_FOUND)
    add_library(positioning::dlt INTERFACE IMPORTED)
    set_target_properties(positioning::dlt PROPERTIES INTERFACE_LINK_LIBRARIES PkgConfig::DLT)
  endif()
endif()
