# Installs the package into a folder of its own, builds the example host against it, once with find_package and, not for
# Windows, once with pkg-config, and runs it: a refused connection is reported in one sentence and ends the host.
file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --component kvmpdsrc --prefix ${WORK}/prefix
                OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} -S ${HOST} -B ${WORK}/build -DCMAKE_PREFIX_PATH=${WORK}/prefix
                        -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_CXX_FLAGS=${FLAGS} -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN}
                        -DCMAKE_FIND_ROOT_PATH=${WORK}/prefix
                OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK}/build OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)

# The page for hosts shows this very program.
file(READ ${HOST}/main.cpp source)
file(READ ${HOST}/../../docs/hosting.md page)
string(STRIP "${source}" source)
string(FIND "${page}" "${source}" found)
if(found EQUAL -1)
    message(FATAL_ERROR "docs/hosting.md does not show examples/minimal-host/main.cpp as it is")
endif()

function(check_host program)
    execute_process(COMMAND ${EMULATOR} ${program}${SUFFIX} http://127.0.0.1:1/live.mpd ${WORK} RESULT_VARIABLE result
                    OUTPUT_VARIABLE output ERROR_VARIABLE errors TIMEOUT 60)
    if(NOT result EQUAL 1 OR NOT errors MATCHES "manifest: failed")
        message(FATAL_ERROR "${program} ended with ${result}\n${output}\n${errors}")
    endif()
endfunction()
if(SUFFIX)
    file(COPY ${WORK}/prefix/bin/KVMPDSrc.ax DESTINATION ${WORK}/build)  # modules are looked for beside the program
endif()
check_host(${WORK}/build/minimal-host)
if(SUFFIX)
    return()
endif()

find_program(PKG_CONFIG pkg-config)
if(NOT PKG_CONFIG)
    message(STATUS "pkg-config is not installed: the pkg-config file is not checked")
    return()
endif()
file(GLOB_RECURSE pc ${WORK}/prefix/kvmpdsrc.pc)
cmake_path(GET pc PARENT_PATH pc_folder)
set(ENV{PKG_CONFIG_PATH} ${pc_folder})
execute_process(COMMAND ${PKG_CONFIG} --cflags --libs kvmpdsrc OUTPUT_VARIABLE flags
                OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${PKG_CONFIG} --variable=libdir kvmpdsrc OUTPUT_VARIABLE libdir
                OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(flags)
execute_process(COMMAND ${CXX} -std=c++20 ${FLAGS} ${HOST}/main.cpp -o ${WORK}/host-by-pkg-config ${flags}
                        -Wl,-rpath,${libdir} COMMAND_ERROR_IS_FATAL ANY)
check_host(${WORK}/host-by-pkg-config)
