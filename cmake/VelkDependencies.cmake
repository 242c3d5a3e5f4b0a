# Every library comes from the distribution's packages (scripts/setup.sh installs them).
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(CURL REQUIRED)
pkg_check_modules(SODIUM REQUIRED IMPORTED_TARGET libsodium)
find_package(nlohmann_json 3.11 REQUIRED)
pkg_check_modules(ZSTD REQUIRED IMPORTED_TARGET libzstd)

if(WIN32)
    # The Windows builds of libsodium and libcurl are static libraries.
    set_property(TARGET PkgConfig::SODIUM APPEND PROPERTY INTERFACE_COMPILE_DEFINITIONS SODIUM_STATIC)
    set_property(TARGET CURL::libcurl APPEND PROPERTY INTERFACE_COMPILE_DEFINITIONS CURL_STATICLIB)
    set_property(TARGET CURL::libcurl APPEND PROPERTY INTERFACE_LINK_LIBRARIES ws2_32 crypt32 secur32 bcrypt advapi32)
else()
    find_package(OpenSSL REQUIRED)
    find_package(LibArchive REQUIRED)
endif()

if(NOT WIN32 AND (VELK_BUILD_TESTS OR VELK_BUILD_BENCH OR VELK_BUILD_TOOLS))
    # Debian builds cpp-httplib as a shared library with TLS and compression on; its
    # compile definitions must match the library or it crashes at run time.
    pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
endif()
if(VELK_BUILD_TESTS)
    find_package(GTest REQUIRED)
    include(GoogleTest)
endif()
if(VELK_BUILD_BENCH)
    find_package(benchmark REQUIRED)
endif()
