include(GNUInstallDirs)

# Where the headers go when installed: PREFIX/include/mediawire/<folder>/..., the platform's
# declarations in PREFIX/include/mediawire/platform.
set(MW_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/mediawire)
set(MW_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/mediawire)

# A system library found through pkg-config, as the imported target PkgConfig::<name>. The
# installed package finds the same modules again for its users.
function(mw_find_pkg name)
    pkg_check_modules(${name} REQUIRED IMPORTED_TARGET GLOBAL ${ARGN})
    string(REPLACE ";" "," modules "${ARGN}")
    set_property(GLOBAL APPEND PROPERTY MW_PKG_FINDS "${name}:${modules}")
    set_property(GLOBAL APPEND PROPERTY MW_PKG_MODULES ${ARGN})
endfunction()

# The shared libraries export the library's own symbols only, not the instantiations of the
# standard library's templates that every object file carries.
set(MW_EXPORTS_MAP ${PROJECT_SOURCE_DIR}/cmake/exports.map)

# One folder is one library target, mediawire::<folder> when installed (platform/wave gives
# mediawire::platform_wave). Sources are globbed so that adding a unit to a folder needs no
# edit here; the folder's CMakeLists names the dependencies.
function(mw_library name)
    cmake_parse_arguments(A "" "" "DEPS" ${ARGN})
    file(GLOB srcs CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
    add_library(${name} ${srcs})
    file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
    string(REGEX REPLACE "^mw_" "" export_name ${name})
    add_library(mediawire::${export_name} ALIAS ${name})
    set_target_properties(${name} PROPERTIES EXPORT_NAME ${export_name}
                                             VERSION ${PROJECT_VERSION}
                                             SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
                                             INSTALL_RPATH "\$ORIGIN")
    if(BUILD_SHARED_LIBS)
        target_link_options(${name} PRIVATE "LINKER:--version-script=${MW_EXPORTS_MAP}")
        set_property(TARGET ${name} APPEND PROPERTY LINK_DEPENDS ${MW_EXPORTS_MAP})
    endif()
    target_include_directories(${name} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/platform/include>
        $<INSTALL_INTERFACE:${MW_INSTALL_INCLUDEDIR}> $<INSTALL_INTERFACE:${MW_INSTALL_INCLUDEDIR}/platform>)
    target_link_libraries(${name} PUBLIC ${A_DEPS} Threads::Threads)
    install(TARGETS ${name} EXPORT mediawireTargets
            ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
            LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
            RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/ DESTINATION ${MW_INSTALL_INCLUDEDIR}/${folder}
            FILES_MATCHING PATTERN "*.h" PATTERN "CMakeFiles" EXCLUDE)
    set_property(GLOBAL APPEND PROPERTY MW_LIBRARIES ${name})
endfunction()

# A test executable of one folder of tests/. Every test runs as its own ctest case.
function(mw_test name)
    cmake_parse_arguments(A "" "" "DEPS" ${ARGN})
    file(GLOB srcs CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
    if(NOT srcs)
        return()
    endif()
    add_executable(${name} ${srcs})
    target_link_libraries(${name} PRIVATE ${A_DEPS} mw_testsupport GTest::gtest GTest::gmock)
    # The test framework's headers dominate a test unit's compile time: compile them once.
    target_precompile_headers(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support/TestPch.h)
    # Test code needs no full optimisation; -O1 compiles it in about two thirds of the time.
    target_compile_options(${name} PRIVATE $<$<CONFIG:RelWithDebInfo>:-O1>)
    # A GLib critical (a misused libgsf or GLib call) fails the test instead of scrolling by.
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120
                         PROPERTIES TIMEOUT 300 ENVIRONMENT "G_DEBUG=fatal-criticals")
endfunction()
