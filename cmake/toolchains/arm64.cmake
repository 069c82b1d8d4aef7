# Cross-builds for arm64 with Debian's compilers and multiarch libraries. docs/porting.md lists the packages.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
# Multiarch keeps the libraries of all architectures in one tree, so the search is limited to the arm64 folders.
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu /usr/lib/aarch64-linux-gnu)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
set(CMAKE_INSTALL_LIBDIR lib/aarch64-linux-gnu CACHE PATH "Where the libraries go")
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
# Runs arm64 programs on other machines. The dynamic loader is the one from libc6:arm64: the cross compiler's loader has
# a different version than the libraries, and programs would hang when they start their first thread.
find_program(QEMU_AARCH64 NAMES qemu-aarch64 qemu-aarch64-static)
if(QEMU_AARCH64)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${QEMU_AARCH64})
endif()
