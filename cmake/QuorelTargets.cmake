# Warning flags for our own targets only; third-party headers come in as SYSTEM includes.
# Errors in the presets and CI (QUOREL_WERROR); a packager's plain build with another compiler
# or optimisation level only warns.
add_library(quorel_warnings INTERFACE)
target_compile_options(quorel_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast
    -Wcast-align -Woverloaded-virtual -Wnull-dereference -Wformat=2
    $<$<BOOL:${QUOREL_WERROR}>:-Werror>
    # GCC 12's -O3 inlining of std::string's append reports overlaps that cannot happen
    # (GCC bugs 105329 and 105651); they would stop a -Werror release build.
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)

# Every source folder includes headers as "folder/Header.h" from the repository root.
add_library(quorel_includes INTERFACE)
target_include_directories(quorel_includes INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}/generated)

# quorel_library(NAME folder-target SOURCES ... LINKS ...)
function(quorel_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_link_libraries(${name} PUBLIC quorel_includes ${ARG_LINKS} PRIVATE quorel_warnings)
endfunction()

# quorel_test(NAME [WHOLE] SOURCES ... LINKS ...): one GoogleTest executable per folder. WHOLE
# registers the executable as one test, for one that starts a server once for all its tests.
function(quorel_test name)
    cmake_parse_arguments(ARG "WHOLE" "" "SOURCES;LINKS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LINKS} GTest::gtest GTest::gtest_main GTest::gmock quorel_warnings)
    target_compile_definitions(${name} PRIVATE
        QUOREL_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
        QUOREL_BINARY_DIR="${PROJECT_BINARY_DIR}")
    if(ARG_WHOLE)
        add_test(NAME ${name} COMMAND ${name})
        set_tests_properties(${name} PROPERTIES TIMEOUT 900)
        return()
    endif()
    # Short test names: parameters show in failure messages, not in every line of the log.
    gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300)
endfunction()

configure_file(${PROJECT_SOURCE_DIR}/cmake/Version.h.in ${PROJECT_BINARY_DIR}/generated/quorel/Version.h)
