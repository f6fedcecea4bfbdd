# What `cmake --install` puts where, in three components: Library, Development and Tool. Everything is found by relative
# paths, so the installed tree can be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zotuning_utils)
set(doc_dir ${CMAKE_INSTALL_DATAROOTDIR}/doc/zotuning_utils)

# ---- The shared library and what is needed to link it.
# If a library is outside the linker's own folders, as Debian's liblog is, its path is kept.
set_target_properties(zotuning_utils PROPERTIES INSTALL_RPATH_USE_LINK_PATH ON)
install(TARGETS zotuning_utils EXPORT zotuning_utilsTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Library NAMELINK_COMPONENT Development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zotuning_utils
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zotuning_utils COMPONENT Development)
install(EXPORT zotuning_utilsTargets NAMESPACE zotuning:: DESTINATION ${package_dir} COMPONENT Development)

# Whether protobuf is installed with the library, from build/ndk, or must already be there.
set(ZOTUNING_PROTOBUF_BESIDE OFF)
if(TARGET libprotobuf)
  set(ZOTUNING_PROTOBUF_BESIDE ON)
endif()
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/zotuning_utilsConfig.cmake.in
  ${PROJECT_BINARY_DIR}/zotuning_utilsConfig.cmake INSTALL_DESTINATION ${package_dir}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zotuning_utilsConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/zotuning_utilsConfig.cmake
  ${PROJECT_BINARY_DIR}/zotuning_utilsConfigVersion.cmake
  ${CMAKE_CURRENT_LIST_DIR}/FindAndroidLog.cmake
  DESTINATION ${package_dir} COMPONENT Development)

# Debian has liblog in a folder of its own, with a header in another one; pkg-config needs both.
if(ANDROID)
  set(ZOTUNING_PC_LOG_LIBS -llog)
  set(ZOTUNING_PC_LOG_CFLAGS "")
else()
  cmake_path(GET AndroidLog_LIBRARY PARENT_PATH log_dir)
  set(ZOTUNING_PC_LOG_LIBS "-L${log_dir} -Wl,-rpath,${log_dir} -llog")
  set(ZOTUNING_PC_LOG_CFLAGS "-isystem ${AndroidLog_INCLUDE_DIR}")
endif()
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
  BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig OUTPUT_VARIABLE ZOTUNING_PC_PREFIX)
configure_file(${CMAKE_CURRENT_LIST_DIR}/zotuning_utils.pc.in ${PROJECT_BINARY_DIR}/zotuning_utils.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zotuning_utils.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)

# ---- Documents and the example project.
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${PROJECT_SOURCE_DIR}/README.md
  DESTINATION ${doc_dir} COMPONENT Development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs ${PROJECT_SOURCE_DIR}/examples
  DESTINATION ${doc_dir} COMPONENT Development FILES_MATCHING
  PATTERN *.md PATTERN *.proto PATTERN *.json PATTERN *.h)
# The reference of every public name is written from the comments of the public header.
find_program(ZOTUNING_AWK awk)
mark_as_advanced(ZOTUNING_AWK)
if(ZOTUNING_AWK)
  install(CODE "
    execute_process(COMMAND ${ZOTUNING_AWK} -f ${PROJECT_SOURCE_DIR}/scripts/api_page.awk
                            ${PROJECT_SOURCE_DIR}/src/ZoTuningUtils.h
                    OUTPUT_FILE ${PROJECT_BINARY_DIR}/api.md COMMAND_ERROR_IS_FATAL ANY)" COMPONENT Development)
  install(FILES ${PROJECT_BINARY_DIR}/api.md DESTINATION ${doc_dir}/docs COMPONENT Development)
endif()

# ---- The command-line tool, its man page and the completions of three shells.
if(TARGET zotuning)
  set_target_properties(zotuning PROPERTIES INSTALL_RPATH_USE_LINK_PATH ON)
  install(TARGETS zotuning RUNTIME COMPONENT Tool)
  set(completions ${PROJECT_SOURCE_DIR}/packaging/completions)
  install(FILES ${completions}/zotuning.bash RENAME zotuning
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions COMPONENT Tool)
  install(FILES ${completions}/_zotuning
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/zsh/site-functions COMPONENT Tool)
  install(FILES ${completions}/zotuning.fish
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/fish/vendor_completions.d COMPONENT Tool)

  # The page is made from the tool's own --help output, so it needs a tool that runs here.
  if(NOT CMAKE_CROSSCOMPILING AND NOT ZOTUNING_SANITIZE)
    set(man_page ${PROJECT_BINARY_DIR}/zotuning.1)
    set(man_template ${PROJECT_SOURCE_DIR}/packaging/zotuning.1.in)
    add_custom_command(OUTPUT ${man_page}
      COMMAND ${CMAKE_COMMAND} -D TOOL=$<TARGET_FILE:zotuning> -D TEMPLATE=${man_template} -D PAGE=${man_page}
              -D VERSION=${PROJECT_VERSION} -P ${CMAKE_CURRENT_LIST_DIR}/man_page.cmake
      DEPENDS zotuning ${man_template} ${CMAKE_CURRENT_LIST_DIR}/man_page.cmake
      VERBATIM)
    add_custom_target(zotuning_man ALL DEPENDS ${man_page})
    install(FILES ${man_page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT Tool)
  endif()
endif()
