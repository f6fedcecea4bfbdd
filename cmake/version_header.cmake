# Writes HEADER with the version and the commit of the tree SOURCE, if they differ from its current content. A tree
# without a repository of its own, as from an archive, has the commit "unknown".
set(commit unknown)
if(GIT AND EXISTS ${SOURCE}/.git)
  execute_process(COMMAND ${GIT} -C ${SOURCE} describe --always --abbrev=12 --exclude=* --dirty
    OUTPUT_VARIABLE described OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE status ERROR_QUIET)
  if(status EQUAL 0)
    set(commit ${described})
  endif()
endif()
set(text "// Written by the build.
#pragma once

#define ZOTUNING_VERSION \"${VERSION}\"
#define ZOTUNING_COMMIT \"${commit}\"
")
set(old "")
if(EXISTS ${HEADER})
  file(READ ${HEADER} old)
endif()
if(NOT old STREQUAL text)
  file(WRITE ${HEADER} "${text}")
endif()
