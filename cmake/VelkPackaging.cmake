# Installation and packages: `cmake --install` puts the updater (and, where built, the
# tools) into bin/; `cpack` zips the installed tree (for the Windows build: VELK_Updater.exe).
install(TARGETS VELK_Updater RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

set(CPACK_PACKAGE_NAME "VELK_Updater")
set(CPACK_PACKAGE_VENDOR "Quenmark")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_GENERATOR ZIP)
if(WIN32)
    set(CPACK_SYSTEM_NAME win64)
endif()
include(CPack)
