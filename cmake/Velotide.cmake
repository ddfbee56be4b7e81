# Shared build conventions: warnings for every target, and one way to declare tests.

function(velotide_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
endfunction()

# velotide_library(name SOURCES ... LIBS ...): a static library of one subsystem.
function(velotide_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${name} PUBLIC ${ARG_LIBS})
    velotide_warnings(${name})
endfunction()

# velotide_test(name SOURCES ... LIBS ... [MAIN core|gui|none] [LABELS ...] [ENVIRONMENT ...]
#               [WRAPPER cmd...] [TIMEOUT s])
# A GoogleTest executable run by CTest. Its main() makes a QCoreApplication (MAIN core, the
# default) or a QApplication (MAIN gui); MAIN none brings its own. WRAPPER runs the test
# through a harness script (a private network namespace, a sound server, an X server) that
# starts what the test needs and stops it afterwards.
function(velotide_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT;MAIN" "SOURCES;LIBS;LABELS;ENVIRONMENT;WRAPPER" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests
                                               ${PROJECT_SOURCE_DIR}/tools)
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest GTest::gmock)
    if(NOT ARG_MAIN OR ARG_MAIN STREQUAL "core")
        target_link_libraries(${name} PRIVATE velotide_test_main)
    elseif(ARG_MAIN STREQUAL "gui")
        target_link_libraries(${name} PRIVATE velotide_test_main_gui)
    endif()
    velotide_warnings(${name})
    add_test(NAME ${name} COMMAND ${ARG_WRAPPER} $<TARGET_FILE:${name}>)
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 300)
    endif()
    set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT})
    if(ARG_LABELS)
        set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABELS}")
    endif()
    if(ARG_ENVIRONMENT)
        set_tests_properties(${name} PROPERTIES ENVIRONMENT "${ARG_ENVIRONMENT}")
    endif()
endfunction()

# Adds every listed subfolder that has a CMakeLists.txt of its own, in order, so that a
# subsystem joins the build by adding its folder file and nothing else.
function(velotide_add_subdirectories)
    foreach(dir ${ARGN})
        if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/CMakeLists.txt)
            add_subdirectory(${dir})
        endif()
    endforeach()
endfunction()
