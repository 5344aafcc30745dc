# How this project's libraries and test programs are declared: one static library a room, named kv_ROOM, and one
# test program a room, so that the flags and the include root are said once.

add_library(kv_options INTERFACE)
target_include_directories(kv_options INTERFACE ${PROJECT_SOURCE_DIR})
if(MSVC)
    target_compile_options(kv_options INTERFACE /W4 /permissive- /utf-8 /EHsc $<$<BOOL:${KV_WERROR}>:/WX>)
else()
    target_compile_options(kv_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
                           $<$<BOOL:${KV_WERROR}>:-Werror>)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(kv_options INTERFACE -Wthread-safety -Wthread-safety-beta)
endif()
if(KV_SANITIZE)
    target_compile_options(kv_options INTERFACE -fsanitize=${KV_SANITIZE} -fno-omit-frame-pointer
                           -fno-sanitize-recover=all)
    target_link_options(kv_options INTERFACE -fsanitize=${KV_SANITIZE})
endif()
if(WIN32)
    target_compile_definitions(kv_options INTERFACE UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0601)
else()
    find_package(Threads REQUIRED)
    target_link_libraries(kv_options INTERFACE Threads::Threads)
endif()

# kv_add_room(NAME SOURCES file... [DEPS target...] [PRIVATE_DEPS target...])
function(kv_add_room name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;PRIVATE_DEPS" ${ARGN})
    add_library(kv_${name} STATIC ${ARG_SOURCES})
    target_link_libraries(kv_${name} PUBLIC kv_options ${ARG_DEPS} PRIVATE ${ARG_PRIVATE_DEPS})
endfunction()

# kv_add_test(PROGRAM SOURCES file... [DEPS target...] [TIMEOUT seconds] [LABELS label...] [LOCK resource])
# Declares a GoogleTest program and registers each of its cases with CTest.
function(kv_add_test program)
    cmake_parse_arguments(ARG "" "TIMEOUT;LOCK" "SOURCES;DEPS;LABELS" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    add_executable(${program} ${ARG_SOURCES})
    target_link_libraries(${program} PRIVATE kv_test_support ${ARG_DEPS})
    # Tests are compiled lightly: the rooms are what is optimised and what undefined behaviour is looked for in. A
    # sanitizer's checks in optimised tests would cost most of the build's time.
    if(NOT MSVC)
        set(optimisation -O1)
        if(KV_SANITIZE)
            set(optimisation -O0)
        endif()
        target_compile_options(${program} PRIVATE ${optimisation} -g1)
    endif()
    if(KV_SANITIZE MATCHES "undefined")
        # As a property of the sources: it has to stand behind the options that come with the rooms.
        set_source_files_properties(${ARG_SOURCES} PROPERTIES COMPILE_OPTIONS -fno-sanitize=undefined)
    endif()
    if(ARG_LOCK)  # cases that share something outside of their process run one after the other
        set(lock RESOURCE_LOCK ${ARG_LOCK})
    endif()
    gtest_discover_tests(${program} TEST_PREFIX "${program}." NO_PRETTY_VALUES DISCOVERY_TIMEOUT 300
                         PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}" ${lock})
endfunction()
