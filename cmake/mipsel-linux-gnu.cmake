# 32-bit little-endian MIPS with Debian's cross compiler, libraries from the folder
# that script/cross fills, and programs run under the emulator.
set(NORVEX_TOOLCHAIN mipsel-linux-gnu-)
set(NORVEX_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/mipsel-sysroot")
include(${CMAKE_CURRENT_LIST_DIR}/device.cmake)
set(CMAKE_LIBRARY_ARCHITECTURE mipsel-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-mipsel;-L;${CMAKE_SYSROOT}")
