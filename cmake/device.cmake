# A device's own toolchain, gcc with a prefix, for the preset "device":
#   NORVEX_TOOLCHAIN  prefix of its programs: /opt/vendor/bin/mipsel-linux-
#   NORVEX_SYSROOT    root folder with the device's headers and libraries, cJSON among
#                     them; empty: what the compiler finds by itself
set(NORVEX_TOOLCHAIN "" CACHE STRING "Prefix of the cross compiler's programs")
set(NORVEX_SYSROOT "" CACHE PATH "Root folder of the device's headers and libraries")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES NORVEX_TOOLCHAIN NORVEX_SYSROOT)
if(NORVEX_TOOLCHAIN STREQUAL "")
  message(FATAL_ERROR "name the cross compiler: -DNORVEX_TOOLCHAIN=/opt/vendor/bin/mipsel-linux-")
endif()

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(CMAKE_C_COMPILER ${NORVEX_TOOLCHAIN}gcc)
set(CMAKE_CXX_COMPILER ${NORVEX_TOOLCHAIN}g++)

# Nothing of the building machine gets in.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} "")
if(NORVEX_SYSROOT)
  get_filename_component(CMAKE_SYSROOT "${NORVEX_SYSROOT}" ABSOLUTE)
  set(CMAKE_FIND_ROOT_PATH "${CMAKE_SYSROOT}")
  file(GLOB packages "${CMAKE_SYSROOT}/usr/lib/pkgconfig" "${CMAKE_SYSROOT}/usr/lib/*/pkgconfig"
    "${CMAKE_SYSROOT}/usr/share/pkgconfig")
  list(JOIN packages ":" packages)
  set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CMAKE_SYSROOT}")
  set(ENV{PKG_CONFIG_LIBDIR} "${packages}")
endif()
