# tv_test(<tst_name> LIBS <library>... [SOURCES <file>...])
#
# A Qt Test program from <tst_name>.cpp in this folder. It is built into the bin directory of an
# installation root of its own, build/tests/roots/<tst_name>, so the directories that the code under test
# derives from its executable's place belong to this test alone.
function(tv_test name)
    cmake_parse_arguments(ARG "" "" "LIBS;SOURCES" ${ARGN})
    set(root "${CMAKE_BINARY_DIR}/tests/roots/${name}")
    add_executable(${name} ${name}.cpp ${ARG_SOURCES})
    set_target_properties(${name} PROPERTIES AUTOMOC ON RUNTIME_OUTPUT_DIRECTORY "${root}/bin")
    target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}/tests")
    target_link_libraries(${name} PRIVATE tv_settings ${ARG_LIBS} Qt5::Test)
    tv_precompile(${name} tv_test_headers)
    # Fakes at the boundary of a shared library forward to the real function through the dynamic linker.
    target_link_libraries(${name} PRIVATE ${CMAKE_DL_LIBS})
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES
        TIMEOUT 240
        # The sanitizer of undefined behaviour goes on after telling.
        FAIL_REGULAR_EXPRESSION "runtime error: "
        ENVIRONMENT "QT_LOGGING_RULES=;TVFILEMON_SOURCE_DIR=${CMAKE_SOURCE_DIR};TSAN_OPTIONS=ignore_noninstrumented_modules=1:suppressions=${CMAKE_SOURCE_DIR}/tests/tsan.supp")
    set_property(GLOBAL APPEND PROPERTY TV_REGISTERED_TESTS "${CMAKE_CURRENT_SOURCE_DIR}/${name}.cpp")
endfunction()

# A test source that nobody runs looks like a passing test.
function(tv_require_every_test_registered directory)
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS "${directory}/tst_*.cpp")
    get_property(registered GLOBAL PROPERTY TV_REGISTERED_TESTS)
    foreach(source IN LISTS sources)
        if(NOT source IN_LIST registered)
            message(FATAL_ERROR "${source} is not registered with tv_test()")
        endif()
    endforeach()
endfunction()
