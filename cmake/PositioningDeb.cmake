# Debian packages of the installed files, for the head unit's image (armhf) and for
# development machines (amd64):
#   positioning-module      libPositioning.so
#   positioning-module-dev  the headers, the CMake package and the pkg-config file
# Made in a build tree with: cpack -G DEB   (scripts/checks/35-deb.sh checks them)
set(POSITIONING_DEB_PACKAGE positioning-module)
if(CMAKE_LIBRARY_ARCHITECTURE MATCHES "^arm-linux-gnueabihf")
  set(POSITIONING_DEB_ARCH armhf)
elseif(CMAKE_LIBRARY_ARCHITECTURE MATCHES "^x86_64-linux-gnu")
  set(POSITIONING_DEB_ARCH amd64)
elseif(CMAKE_LIBRARY_ARCHITECTURE MATCHES "^aarch64-linux-gnu")
  set(POSITIONING_DEB_ARCH arm64)
else()
  set(POSITIONING_DEB_ARCH "${CMAKE_SYSTEM_PROCESSOR}")
endif()

# Each package carries its copyright and changelog (installed by cpack only).
set(POSITIONING_DEB_DATE "Mon, 23 Nov 2026 09:00:00 +0000")
foreach(component runtime dev)
  if(component STREQUAL runtime)
    set(package ${POSITIONING_DEB_PACKAGE})
  else()
    set(package ${POSITIONING_DEB_PACKAGE}-dev)
  endif()
  set(docdir ${CMAKE_CURRENT_BINARY_DIR}/deb/${package})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/deb/changelog.in ${docdir}/changelog.Debian @ONLY)
  execute_process(COMMAND gzip -9nf ${docdir}/changelog.Debian RESULT_VARIABLE gzipped)
  if(NOT gzipped EQUAL 0)
    message(FATAL_ERROR "gzip of ${docdir}/changelog.Debian failed")
  endif()
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/deb/copyright ${docdir}/changelog.Debian.gz
    DESTINATION share/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/deb/${package}.lintian-overrides
    DESTINATION share/lintian/overrides RENAME ${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME positioning)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Positioning team <positioning@headunit.example.com>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${POSITIONING_DEB_ARCH})
set(CPACK_DEBIAN_PACKAGE_SOURCE positioning)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${POSITIONING_DEB_PACKAGE})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# The module lies in the loader's directory: refresh its cache.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/deb/triggers)
# The runtime the library needs (its .gnu.version_r, pinned by ModuleRuntimeTest
# against the README's table): GLIBCXX_3.4.21 and CXXABI_1.3.9 came with GCC 5; ARM
# takes the EABI division helpers from libgcc_s.
if(POSITIONING_OLD_STRING_ABI)
  set(POSITIONING_DEB_LIBC "libc6 (>= 2.32)")
elseif(POSITIONING_DEB_ARCH STREQUAL armhf)
  set(POSITIONING_DEB_LIBC "libc6 (>= 2.4)")
else()
  set(POSITIONING_DEB_LIBC "libc6 (>= 2.14)")
endif()
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "${POSITIONING_DEB_LIBC}, libstdc++6 (>= 5)")
if(POSITIONING_DEB_ARCH STREQUAL armhf)
  string(APPEND CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS ", libgcc-s1 (>= 3.5)")
endif()
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "positioning feature module of the head unit
libPositioning.so, loaded by the head unit's feature daemon with dlopen. It
gathers gyroscope and odometer samples from the CAN micro-controller or an
external sensor service, stamps them in a synchronised time base, buffers a
minute of them and delivers them to positioning clients.")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${POSITIONING_DEB_PACKAGE}-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${POSITIONING_DEB_PACKAGE} (= ${PROJECT_VERSION}-1)")
set(CPACK_COMPONENT_DEV_DESCRIPTION "positioning feature module: headers for the daemon
The headers a feature daemon needs to load the positioning feature module
(entry points, host contract, the symbols the daemon must provide), with a
CMake package (find_package(Positioning)) and a pkg-config file.")
include(CPack)
