# Debian packages, by `cpack` in the build folder: the library, what is needed to link it, and the tool.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zotuning)
set(CPACK_PACKAGE_VENDOR "")
set(CPACK_PACKAGE_CONTACT "The maintainers of zotuning_utils <maintainers@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL Library Development Tool)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# A program needs a library with the same soname and at least the version it was linked with.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libzotuning-utils${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION
  "Camera tuning projects: shared library\nMakes and reads tuning projects, and packs them into tuning bins.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzotuning-utils-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
# The public header includes those of protobuf (one of them is packaged with the compiler) and of the Android log.
string(JOIN ", " CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} (= ${PROJECT_VERSION})"
  "libprotobuf-dev (>= 3.21.12)" "libprotobuf-dev (<< 3.22)" "libprotoc-dev (>= 3.21.12)" android-liblog-dev)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "Camera tuning projects: headers and documents\nHeaders, CMake package, pkg-config file, documents and an example project.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME zotuning)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOL_DESCRIPTION
  "Camera tuning projects: console tool\nMakes, looks after and packs camera tuning projects.")
include(CPack)
