# Compiler settings shared by every target, and the one way to declare a folder library.

add_library(tv_settings INTERFACE)
target_compile_options(tv_settings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2 -Wcast-qual
    $<$<BOOL:${TVFILEMON_WARNINGS_AS_ERRORS}>:-Werror>)
target_compile_definitions(tv_settings INTERFACE
    QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_DEPRECATED_WARNINGS QT_NO_KEYWORDS
    $<$<NOT:$<CONFIG:Debug>>:QT_NO_DEBUG>)
target_include_directories(tv_settings INTERFACE "${CMAKE_SOURCE_DIR}/src")

if(TVFILEMON_SANITIZE)
    target_compile_options(tv_settings INTERFACE -fsanitize=${TVFILEMON_SANITIZE} -fno-omit-frame-pointer)
    target_link_options(tv_settings INTERFACE -fsanitize=${TVFILEMON_SANITIZE})
else()
    # The service opens what an attacker made, as root: every cheap hardening is on.
    target_compile_options(tv_settings INTERFACE -fstack-protector-strong
        $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
    target_link_options(tv_settings INTERFACE -Wl,-z,relro -Wl,-z,now)
endif()

if(TVFILEMON_COVERAGE)
    # Threads that count at once without atomic operations come to less than nothing.
    target_compile_options(tv_settings INTERFACE --coverage -fprofile-abs-path -fprofile-update=atomic)
    target_link_options(tv_settings INTERFACE --coverage -Wl,--wrap=_exit)
    add_library(tv_counted_exit STATIC "${CMAKE_SOURCE_DIR}/tests/support/countedexit.c")
    target_link_libraries(tv_settings INTERFACE tv_counted_exit)
endif()

include(TvPrecompiledHeaders)

# tv_folder_library(<name> SOURCES <file>... [PUBLIC <lib>...] [PRIVATE <lib>...])
#
# A folder of src/ as a static library. Its PUBLIC list is the architecture: what the folder may include.
function(tv_folder_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_link_libraries(${name} PUBLIC tv_settings ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE})
    tv_precompile(${name} tv_headers)
endfunction()
