# For test scripts (cmake -P) that run the project's programs, natively or through the emulator of a cross build.
# They get BIN (the programs' folder), SUFFIX, EMULATOR, and WORK, a folder that is emptied here.
cmake_minimum_required(VERSION 3.25)
file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}")
set(rows 0)

function(program out name)
    set(${out} ${EMULATOR} "${BIN}/${name}${SUFFIX}" PARENT_SCOPE)
endfunction()

# run([INPUT file] COMMAND program argument... [COMMAND ...]): sets status (of the last), statuses, out and err, with
# line ends as on Linux.
function(run)
    cmake_parse_arguments(PARSE_ARGV 0 run "" "INPUT" "")
    set(input "")
    if(run_INPUT)
        set(input INPUT_FILE "${run_INPUT}")
    endif()
    execute_process(${run_UNPARSED_ARGUMENTS} ${input} WORKING_DIRECTORY "${WORK}" TIMEOUT 100
        RESULTS_VARIABLE statuses OUTPUT_VARIABLE out ERROR_VARIABLE err)
    list(GET statuses -1 status)
    string(REPLACE "\r" "" out "${out}")
    string(REPLACE "\r" "" err "${err}")
    foreach(variable status statuses out err)
        set(${variable} "${${variable}}" PARENT_SCOPE)
    endforeach()
endfunction()

# Complains unless `actual` is `expected`.
function(expect_equal what actual expected)
    math(EXPR rows "${rows} + 1")
    set(rows ${rows} PARENT_SCOPE)
    if(NOT "${actual}" STREQUAL "${expected}")
        message(SEND_ERROR "${what}:\n  is       \"${actual}\"\n  expected \"${expected}\"\n  standard error: ${err}")
    endif()
endfunction()

# Complains unless `text` has `part` in it.
function(expect_part what text part)
    math(EXPR rows "${rows} + 1")
    set(rows ${rows} PARENT_SCOPE)
    string(FIND "${text}" "${part}" position)
    if(position EQUAL -1)
        message(SEND_ERROR "${what}: \"${part}\" is missing in\n${text}")
    endif()
endfunction()

# cut(from begin end to): the bytes of `from` from `begin` up to `end` become the file `to`.
function(cut from begin end to)
    math(EXPR last "${end} - 1")
    file(DOWNLOAD "file://${from}" "${to}" RANGE_START ${begin} RANGE_END ${last} STATUS result)
    file(SIZE "${to}" size)
    math(EXPR wanted "${end} - ${begin}")
    if(NOT size EQUAL wanted)
        message(FATAL_ERROR "${from} was not cut: ${result}")
    endif()
endfunction()

# join(to file...): the files one after another.
function(join to)
    execute_process(COMMAND "${CMAKE_COMMAND}" -E cat ${ARGN} OUTPUT_FILE "${to}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(finish)
    message("${rows} expectations checked")
endfunction()
