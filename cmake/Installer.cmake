# Making the installer (./package) and testing it.

add_executable(RegistrationRows ${PROJECT_SOURCE_DIR}/installer/RegistrationRows/Main.cpp)
morvane_add_resources(RegistrationRows)
target_link_libraries(RegistrationRows PRIVATE morvane_host)

# The packages are made of the tree that is shipped, and tested under Wine.
if(NOT CMAKE_CROSSCOMPILING OR MORVANE_CHECKED OR NOT MORVANE_HAVE_GOOGLETEST)
    return()
endif()

set(packages ${PROJECT_BINARY_DIR}/package)
add_test(NAME packages COMMAND ${PROJECT_SOURCE_DIR}/tests/package/make-packages ${packages})
set_tests_properties(packages PROPERTIES
    LABELS package TIMEOUT 300 COST 400 FIXTURES_SETUP packages FIXTURES_REQUIRED wine)

foreach(name contents reproducible symbols)
    add_test(NAME package_${name} COMMAND ${PROJECT_SOURCE_DIR}/tests/package/${name} ${packages})
    set_tests_properties(package_${name} PROPERTIES
        LABELS package TIMEOUT 300 COST 200 FIXTURES_REQUIRED "packages;wine")
endforeach()

add_executable(CrashAt ${PROJECT_SOURCE_DIR}/tests/package/CrashAt/Main.cpp)
target_link_libraries(CrashAt PRIVATE morvane_flags)
target_link_options(CrashAt PRIVATE -municode)

morvane_add_gtest(install_tests SOURCES
    ${PROJECT_SOURCE_DIR}/tests/system/install/InstalledProduct.cpp
    ${PROJECT_SOURCE_DIR}/tests/system/install/Installer.cpp
    ${PROJECT_SOURCE_DIR}/tests/system/install/InstallTests.cpp
    ${PROJECT_SOURCE_DIR}/tests/system/install/PackageTables.cpp
    ${PROJECT_SOURCE_DIR}/tests/system/install/RunningRouterTests.cpp
    ${PROJECT_SOURCE_DIR}/tests/system/install/TableTests.cpp
    ${PROJECT_SOURCE_DIR}/tests/system/install/UpgradeTests.cpp
    ${PROJECT_SOURCE_DIR}/tests/system/RegistryListing.cpp
    LIBRARIES morvane_testsupport morvane_recordingtrace morvane_win32)
# The tests of running routers come first, as the linker orders the sources of their own: after tests whose routers
# other processes started, this process can't reach Wine's COM service for half a minute.
set_target_properties(install_tests PROPERTIES UNITY_BUILD OFF)
target_link_libraries(install_tests PRIVATE msi version)
morvane_add_test(TARGET install_tests LABEL package TIMEOUT 400 ENVIRONMENT MORVANE_PACKAGES=Z:${packages})
set_tests_properties(install_tests PROPERTIES FIXTURES_REQUIRED "packages;wine")
