# Shared compile settings and helpers for the project's targets.

add_library(velk_warnings INTERFACE)
if(MSVC)
    target_compile_options(velk_warnings INTERFACE /W4)
else()
    target_compile_options(velk_warnings INTERFACE -Wall -Wextra)
    if(VELK_WERROR)
        target_compile_options(velk_warnings INTERFACE -Werror)
    endif()
endif()

if(VELK_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()
if(VELK_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
endif()

# velk_add_library(NAME [FILES f...] [DEPS d...]): a static library velk_NAME from the
# given files, or from every .cpp in the current folder when no files are named.
function(velk_add_library name)
    cmake_parse_arguments(ARG "" "" "FILES;DEPS" ${ARGN})
    if(ARG_FILES)
        set(sources ${ARG_FILES})
    else()
        file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
    endif()
    add_library(velk_${name} STATIC ${sources})
    target_include_directories(velk_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(velk_${name} PUBLIC ${ARG_DEPS} PRIVATE velk_warnings)
endfunction()

# velk_add_test(NAME [FILES f...] [DEPS d...] [SERIAL] [LABEL l]): one GoogleTest executable
# test_NAME from the given files, or from every .cpp in the current folder, each test
# registered with CTest under the label, if any. SERIAL keeps its tests from running beside
# each other (they share the loopback endpoint port or, under Wine, the prefix's registry
# and service manager).
function(velk_add_test name)
    cmake_parse_arguments(ARG "SERIAL" "LABEL" "FILES;DEPS" ${ARGN})
    if(ARG_FILES)
        set(sources ${ARG_FILES})
    else()
        file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
    endif()
    add_executable(test_${name} ${sources})
    target_link_libraries(test_${name} PRIVATE ${ARG_DEPS} velk_test_support GTest::gtest GTest::gtest_main velk_warnings)
    set(properties TIMEOUT 600)
    if(ARG_SERIAL)
        list(APPEND properties RESOURCE_LOCK loopback_endpoint)
    endif()
    if(ARG_LABEL)
        list(APPEND properties LABELS ${ARG_LABEL})
    endif()
    # Cross-built tests are listed when CTest runs them, inside the Wine prefix of that run.
    if(CMAKE_CROSSCOMPILING)
        set(discovery DISCOVERY_MODE PRE_TEST)
    endif()
    gtest_discover_tests(test_${name} DISCOVERY_TIMEOUT 120 ${discovery} PROPERTIES ${properties})
endfunction()
