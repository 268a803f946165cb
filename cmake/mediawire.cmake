# One folder is one library target. Sources are globbed so that adding a unit to a
# folder needs no edit here; the folder's CMakeLists names the dependencies.
function(mw_library name)
    cmake_parse_arguments(A "" "" "DEPS" ${ARGN})
    file(GLOB srcs CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
    add_library(${name} STATIC ${srcs})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/platform/include)
    target_link_libraries(${name} PUBLIC ${A_DEPS} Threads::Threads)
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
