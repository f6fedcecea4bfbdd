# program_command(TARGET VARIABLE): how to start a program of the build from a test. That is the program itself or, if
# it is for another processor, a script that runs it under the emulator, since the system may not know how to.
function(program_command target variable)
  set(command $<TARGET_FILE:${target}>)
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR "' '" emulator)
    set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}.sh)
    # Some tests run it as another user.
    file(GENERATE OUTPUT ${script} CONTENT "#!/bin/sh\nexec '${emulator}' '${command}' \"$@\"\n" FILE_PERMISSIONS
      OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    set(command ${script})
  endif()
  set(${variable} ${command} PARENT_SCOPE)
endfunction()
