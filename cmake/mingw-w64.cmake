# Cross-build for 64-bit Windows with Debian's mingw-w64 (the POSIX thread model, which
# std::thread needs). VELK_WINDOWS_DEPS is the prefix that scripts/build_windows.sh fills
# with libsodium, libcurl, GoogleTest and the nlohmann/json headers built for Windows.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(VELK_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${VELK_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${VELK_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${VELK_MINGW_TRIPLE}-windres)

set(VELK_WINDOWS_DEPS "" CACHE PATH "Prefix holding the Windows builds of the dependencies")
set(CMAKE_FIND_ROOT_PATH /usr/${VELK_MINGW_TRIPLE} ${VELK_WINDOWS_DEPS})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Static runtime: without it the programs need libwinpthread-1.dll and friends beside them.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")

# Test discovery and CTest run the Windows programs under Wine.
set(CMAKE_CROSSCOMPILING_EMULATOR wine)
