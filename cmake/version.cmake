# zotuning_version: the header zotuning_version.h with the version, from project() in the top CMakeLists.txt, and the
# commit, looked up at each build. Whatever links it is recompiled only when one of them changes.
find_package(Git QUIET)
set(header ${PROJECT_BINARY_DIR}/generated/zotuning_version.h)
add_custom_target(zotuning_version_header
  COMMAND ${CMAKE_COMMAND} -D VERSION=${PROJECT_VERSION} -D SOURCE=${PROJECT_SOURCE_DIR} -D GIT=${GIT_EXECUTABLE}
          -D HEADER=${header} -P ${CMAKE_CURRENT_LIST_DIR}/version_header.cmake
  BYPRODUCTS ${header}
  COMMENT ""
  VERBATIM)
add_library(zotuning_version INTERFACE)
add_dependencies(zotuning_version zotuning_version_header)
target_include_directories(zotuning_version INTERFACE ${PROJECT_BINARY_DIR}/generated)
