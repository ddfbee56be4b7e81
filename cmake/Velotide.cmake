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
    velotide_register_layer(${name})
endfunction()

# velotide_header_library(name [LIBS ...]): headers only, with nothing to compile.
function(velotide_header_library name)
    cmake_parse_arguments(ARG "" "" "LIBS" ${ARGN})
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${name} INTERFACE ${ARG_LIBS})
    velotide_register_layer(${name})
endfunction()

# Each library belongs to the folder of src/ it is declared in. A folder's sources may include
# only their own folder's headers and those of the libraries it links, directly or through
# another: the libraries' link order is the layering, and a test holds the sources to it.
function(velotide_register_layer name)
    file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR}/src ${CMAKE_CURRENT_SOURCE_DIR})
    string(REGEX REPLACE "/.*" "" folder "${folder}")
    set_property(TARGET ${name} PROPERTY VELOTIDE_FOLDER ${folder})
    set_property(GLOBAL APPEND PROPERTY VELOTIDE_LAYER_LIBRARIES ${name})
endfunction()

function(velotide_layer_reach name out)
    get_target_property(type ${name} TYPE)
    if(type STREQUAL "INTERFACE_LIBRARY")
        get_target_property(links ${name} INTERFACE_LINK_LIBRARIES)
    else()
        get_target_property(links ${name} LINK_LIBRARIES)
    endif()
    get_property(known GLOBAL PROPERTY VELOTIDE_LAYER_LIBRARIES)
    get_target_property(folder ${name} VELOTIDE_FOLDER)
    set(reach ${folder})
    foreach(link IN LISTS links)
        if(link IN_LIST known)
            velotide_layer_reach(${link} below)
            list(APPEND reach ${below})
        endif()
    endforeach()
    list(REMOVE_DUPLICATES reach)
    set(${out} ${reach} PARENT_SCOPE)
endfunction()

# Writes what each folder may include and adds the test that checks every #include line.
function(velotide_check_layers)
    get_property(libraries GLOBAL PROPERTY VELOTIDE_LAYER_LIBRARIES)
    set(table "")
    set(folders "")
    foreach(library IN LISTS libraries)
        get_target_property(folder ${library} VELOTIDE_FOLDER)
        velotide_layer_reach(${library} reach)
        list(APPEND folders ${folder})
        string(APPEND table "list(APPEND reach_${folder} ${reach})\n")
    endforeach()
    list(REMOVE_DUPLICATES folders)
    set(file ${CMAKE_BINARY_DIR}/layers.cmake)
    file(WRITE ${file} "set(folders ${folders})\n${table}")
    add_test(NAME layering_test
             COMMAND ${CMAKE_COMMAND} -DLAYERS=${file} -DSOURCES=${PROJECT_SOURCE_DIR}/src
                     -P ${PROJECT_SOURCE_DIR}/cmake/CheckLayers.cmake)
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
    # A test that needs nothing around it (no private server, bus or display) is a unit
    # test: the sanitised build runs those.
    if(NOT ARG_WRAPPER)
        list(APPEND ARG_LABELS unit)
    endif()
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
