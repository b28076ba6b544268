# 32-bit ARM, hard-float (the panels' CPU), with Debian's cross compiler and
# an unpacked armhf sysroot of Qt 5 (tools/cross/armhf-sysroot.sh makes one).
#
#   cmake -DCMAKE_TOOLCHAIN_FILE=cmake/armhf-toolchain.cmake
#         -DDCP_ARMHF_SYSROOT=<sysroot> [-DDCP_ARMHF_PRELOAD=<shim.so>]
#
# The compiler keeps its own C library and C++ runtime (same glibc and GCC
# as the sysroot's, so binaries run against either); the sysroot supplies Qt
# and everything Qt links. Tests run through qemu-user with the sysroot as
# their root for libraries; DCP_ARMHF_PRELOAD is preloaded into each.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(DCP_ARMHF_TRIPLE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${DCP_ARMHF_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${DCP_ARMHF_TRIPLE}-g++)

set(DCP_ARMHF_SYSROOT "" CACHE PATH "Unpacked armhf sysroot holding Qt 5")
set(DCP_ARMHF_PRELOAD "" CACHE FILEPATH "ARM library preloaded into programs run under qemu")
# try_compile projects read this file again; they need the same values.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES DCP_ARMHF_SYSROOT DCP_ARMHF_PRELOAD)
if(NOT IS_DIRECTORY "${DCP_ARMHF_SYSROOT}/usr/lib/${DCP_ARMHF_TRIPLE}")
    message(FATAL_ERROR "DCP_ARMHF_SYSROOT='${DCP_ARMHF_SYSROOT}' holds no armhf libraries")
endif()

set(CMAKE_FIND_ROOT_PATH ${DCP_ARMHF_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(Qt5_DIR ${DCP_ARMHF_SYSROOT}/usr/lib/${DCP_ARMHF_TRIPLE}/cmake/Qt5 CACHE PATH "")

# Qt's libraries need theirs (ICU, PCRE2, zlib, ...) found at link time,
# without a run path into this machine's folders ending up in any binary.
foreach(dir lib usr/lib)
    string(APPEND DCP_ARMHF_RPATH_LINK " -Wl,-rpath-link,${DCP_ARMHF_SYSROOT}/${dir}/${DCP_ARMHF_TRIPLE}")
endforeach()
set(CMAKE_EXE_LINKER_FLAGS_INIT "${DCP_ARMHF_RPATH_LINK}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${DCP_ARMHF_RPATH_LINK}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${DCP_ARMHF_RPATH_LINK}")

# Qt's CMake files would run the sysroot's ARM moc, rcc and uic; the host's
# (the same Qt release) generate the same code. Targets that already exist
# are taken as they are.
foreach(tool moc rcc uic)
    if(NOT TARGET Qt5::${tool})
        add_executable(Qt5::${tool} IMPORTED)
        set_target_properties(Qt5::${tool} PROPERTIES IMPORTED_LOCATION /usr/lib/qt5/bin/${tool})
    endif()
endforeach()

set(DCP_ARMHF_EMULATOR qemu-arm -L ${DCP_ARMHF_SYSROOT})
if(DCP_ARMHF_PRELOAD)
    list(APPEND DCP_ARMHF_EMULATOR -E LD_PRELOAD=${DCP_ARMHF_PRELOAD})
endif()
# Cached, so that scripts find the same command in CMakeCache.txt.
set(CMAKE_CROSSCOMPILING_EMULATOR "${DCP_ARMHF_EMULATOR}" CACHE STRING
    "Runs the armhf programs on this machine" FORCE)
