# Installs the build tree BUILD_DIR below WORK_DIR, moves the installed tree, and builds and runs the consumer against
# it: once through find_package, once through pkg-config.
function(run)
    list(JOIN ARGN " " command)
    message(STATUS "${command}")
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(run_program program)
    set(ENV{LD_LIBRARY_PATH} "${tree}/${LIBDIR}")
    string(REPLACE "/" "\\" dlls "Z:${tree}/${BINDIR}")
    set(ENV{WINEPATH} "${dlls}")
    execute_process(COMMAND ${EMULATOR} "${program}" OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
    if(NOT output MATCHES "linked and ran")
        message(FATAL_ERROR "${program} printed: ${output}")
    endif()
    message(STATUS "${program}: ran")
endfunction()

file(REMOVE_RECURSE "${WORK_DIR}")
run("${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${WORK_DIR}/installed")
set(tree "${WORK_DIR}/moved")
file(RENAME "${WORK_DIR}/installed" "${tree}")

set(options -DCMAKE_PREFIX_PATH=${tree} -DKIV_EXPECTED_VERSION=${VERSION})
if(TOOLCHAIN)
    list(APPEND options -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN})
else()
    list(APPEND options -DCMAKE_CXX_COMPILER=${COMPILER})
endif()
run("${CMAKE_COMMAND}" -S "${CMAKE_CURRENT_LIST_DIR}" -B "${WORK_DIR}/build" -G Ninja ${options})
run("${CMAKE_COMMAND}" --build "${WORK_DIR}/build")
run_program("${WORK_DIR}/build/consumer${SUFFIX}")

find_program(PKG_CONFIG NAMES pkg-config pkgconf REQUIRED)
set(ENV{PKG_CONFIG_LIBDIR} "${tree}/${LIBDIR}/pkgconfig")
foreach(what cflags libs)
    execute_process(COMMAND "${PKG_CONFIG}" --${what} "kivCore = ${VERSION}"
        OUTPUT_VARIABLE ${what} OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    separate_arguments(${what} UNIX_COMMAND "${${what}}")
endforeach()
run("${COMPILER}" -std=c++20 ${cflags} "${CMAKE_CURRENT_LIST_DIR}/main.cpp"
    -o "${WORK_DIR}/consumer-pc${SUFFIX}" ${libs})
run_program("${WORK_DIR}/consumer-pc${SUFFIX}")
