# Installation: the module, the headers a daemon needs (include/ as
# <includedir>/Positioning), a CMake package and a pkg-config file; and Debian packages
# of the same (cpack -G DEB in the build tree): the module in one, the headers and the
# package files in its -dev package. The simulated host, the tools and the tests are
# not installed. Included from Positioning/CMakeLists.txt.

# Libraries go to the target's multiarch directory (lib/x86_64-linux-gnu,
# lib/arm-linux-gnueabihf), as on the head unit's image and in the Debian packages.
if(NOT DEFINED CACHE{CMAKE_INSTALL_LIBDIR} AND CMAKE_LIBRARY_ARCHITECTURE)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Object code libraries (lib)")
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
set(POSITIONING_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/Positioning)
set(POSITIONING_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/Positioning)
# The headers include each other by their own names, so both <Positioning/X.h> (from
# <includedir>) and "X.h" (from <includedir>/Positioning) work.
target_include_directories(Positioning INTERFACE
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}> $<INSTALL_INTERFACE:${POSITIONING_INSTALL_INCLUDEDIR}>)

add_library(positioning_headers INTERFACE)
target_include_directories(positioning_headers INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}> $<INSTALL_INTERFACE:${POSITIONING_INSTALL_INCLUDEDIR}>)
set_target_properties(positioning_headers PROPERTIES EXPORT_NAME Headers)
# The contract passes std::string: a daemon must use the string ABI the module was
# built with.
if(POSITIONING_OLD_STRING_ABI)
  target_compile_definitions(positioning_headers INTERFACE _GLIBCXX_USE_CXX11_ABI=0)
  target_compile_definitions(Positioning INTERFACE _GLIBCXX_USE_CXX11_ABI=0)
  set(POSITIONING_PC_ABI_FLAG " -D_GLIBCXX_USE_CXX11_ABI=0")
  set(POSITIONING_CXX11_ABI 0)
else()
  set(POSITIONING_PC_ABI_FLAG "")
  set(POSITIONING_CXX11_ABI 1)
endif()

# What a daemon that loads the module needs: the headers, its own symbols exported to
# the module, and dlopen.
add_library(positioning_daemon INTERFACE)
target_link_libraries(positioning_daemon INTERFACE positioning_headers ${CMAKE_DL_LIBS})
target_link_options(positioning_daemon INTERFACE "LINKER:--export-dynamic")
set_target_properties(positioning_daemon PROPERTIES EXPORT_NAME Daemon)

install(TARGETS Positioning EXPORT PositioningTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime)
install(TARGETS positioning_headers positioning_daemon EXPORT PositioningTargets COMPONENT dev)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${POSITIONING_INSTALL_INCLUDEDIR}
  COMPONENT dev FILES_MATCHING PATTERN "*.h")
install(EXPORT PositioningTargets NAMESPACE Positioning:: DESTINATION ${POSITIONING_INSTALL_CMAKEDIR}
  COMPONENT dev)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/PositioningConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/PositioningConfig.cmake
  INSTALL_DESTINATION ${POSITIONING_INSTALL_CMAKEDIR}
  PATH_VARS CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/PositioningConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/PositioningConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/PositioningConfigVersion.cmake
  DESTINATION ${POSITIONING_INSTALL_CMAKEDIR} COMPONENT dev)
set(POSITIONING_PC_DL_FLAG "")
foreach(library ${CMAKE_DL_LIBS})
  string(APPEND POSITIONING_PC_DL_FLAG " -l${library}")
endforeach()
string(STRIP "${POSITIONING_PC_DL_FLAG}" POSITIONING_PC_DL_FLAG)
file(RELATIVE_PATH POSITIONING_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" POSITIONING_PC_TO_PREFIX "${POSITIONING_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/positioning.pc.in ${CMAKE_CURRENT_BINARY_DIR}/positioning.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/positioning.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT dev)

include(${CMAKE_CURRENT_LIST_DIR}/PositioningDeb.cmake)
