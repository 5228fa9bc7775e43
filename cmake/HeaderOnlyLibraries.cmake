# CLI11 (Debian libcli11-dev) and nlohmann-json (Debian nlohmann-json3-dev) as INTERFACE
# targets: positioning::cli11 and positioning::json. Both are header-only and the same
# for every architecture, so a cross build uses the build machine's headers too; only
# their own folders are exposed (through links in the build tree), never the whole of
# /usr/include, whose C library headers are the build machine's.
if(TARGET positioning_cli11)
  return()
endif()

set(_positioning_headers ${CMAKE_BINARY_DIR}/header-only-libraries)
foreach(_entry "CLI/CLI.hpp;CLI;libcli11-dev" "nlohmann/json.hpp;nlohmann;nlohmann-json3-dev")
  list(GET _entry 0 _header)
  list(GET _entry 1 _folder)
  list(GET _entry 2 _package)
  find_path(_positioning_${_folder}_root ${_header} PATHS /usr/include /usr/local/include NO_CMAKE_FIND_ROOT_PATH)
  if(NOT _positioning_${_folder}_root)
    message(FATAL_ERROR "${_header} not found: install the Debian package ${_package}")
  endif()
  file(MAKE_DIRECTORY ${_positioning_headers})
  file(CREATE_LINK ${_positioning_${_folder}_root}/${_folder} ${_positioning_headers}/${_folder} SYMBOLIC)
endforeach()

add_library(positioning_cli11 INTERFACE)
target_include_directories(positioning_cli11 SYSTEM INTERFACE ${_positioning_headers})
add_library(positioning::cli11 ALIAS positioning_cli11)
add_library(positioning_json INTERFACE)
target_include_directories(positioning_json SYSTEM INTERFACE ${_positioning_headers})
add_library(positioning::json ALIAS positioning_json)
