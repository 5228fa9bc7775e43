# positioning_launcher(<target> <variable>): sets <variable> to a path from which a
# native shell can start <target>: the target's file, or, when cross compiling with
# an emulator, a generated script that starts it under CMAKE_CROSSCOMPILING_EMULATOR.
# For tests that run a built program as a child process.
function(positioning_launcher TARGET VARIABLE)
  if(NOT CMAKE_CROSSCOMPILING OR NOT CMAKE_CROSSCOMPILING_EMULATOR)
    set(${VARIABLE} "$<TARGET_FILE:${TARGET}>" PARENT_SCOPE)
    return()
  endif()
  if(CMAKE_VERSION VERSION_LESS 3.19)
    message(FATAL_ERROR "Running ${TARGET} under the emulator needs CMake 3.19 or newer")
  endif()
  set(command "")
  foreach(word IN LISTS CMAKE_CROSSCOMPILING_EMULATOR)
    string(APPEND command "'${word}' ")
  endforeach()
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${TARGET}-launcher)
  file(GENERATE OUTPUT ${script}
       CONTENT "#!/bin/sh\nexec ${command}'$<TARGET_FILE:${TARGET}>' \"$@\"\n"
       FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  set(${VARIABLE} ${script} PARENT_SCOPE)
endfunction()
