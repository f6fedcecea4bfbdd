# Toolchain: Debian's cross compiler for 64-bit Arm, with the libraries of a folder that scripts/checks/arm64 fills from
# Debian's packages; programs of the build run under qemu.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

if(NOT ZOTUNING_ARM64_SYSROOT)
  cmake_path(SET ZOTUNING_ARM64_SYSROOT NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../out/arm64/sysroot)
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZOTUNING_ARM64_SYSROOT)
set(CMAKE_SYSROOT ${ZOTUNING_ARM64_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
# Debian's folder of the log library. CMake takes it for one of this project's own, which it leaves out by itself.
set(CMAKE_INSTALL_RPATH /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static -L ${CMAKE_SYSROOT})
