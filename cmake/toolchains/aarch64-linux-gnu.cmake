# Cross-compiles for 64-bit ARM Linux with Debian's cross compiler against the
# arm64 libraries of Debian's multiarch packages (apt-get install
# g++-aarch64-linux-gnu liblog4cplus-dev:arm64 ...; packaging/aarch64-ci).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

# pkg-config sees only the arm64 and architecture-independent .pc files.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)

# Tests run under user-mode emulation. No -L /usr/aarch64-linux-gnu: that would
# start programs with the cross toolchain's dynamic loader while the libraries,
# libc included, come from the multiarch arm64 packages; a loader and a libc of
# different builds disagree on the loader's private data, and the first thread
# a program starts (log4cplus starts one during static initialisation) spins
# forever in pthread_create. Without -L the emulator uses the multiarch loader
# /lib/ld-linux-aarch64.so.1 that belongs to that libc.
find_program(QEMU_AARCH64 NAMES qemu-aarch64-static qemu-aarch64)
if(QEMU_AARCH64)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${QEMU_AARCH64})
endif()
