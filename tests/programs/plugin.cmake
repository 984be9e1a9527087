# kiv plugin: names and places that must be refused, a plug-in that does not boot as it was written.
include("${CMAKE_CURRENT_LIST_DIR}/Programs.cmake")
program(kiv kiv)

# Exit status, standard output, and a part of standard error.
function(expect status_and_out message)
    run(COMMAND ${kiv} plugin new ${ARGN})
    expect_equal("kiv plugin new ${ARGN}" "${status}: ${out}" "${status_and_out}")
    expect_part("standard error of kiv plugin new ${ARGN}" "${err}" "${message}")
    set(rows ${rows} PARENT_SCOPE)
endfunction()

set(files "(autoexec.sq, main.sq, kamera-ä_greeting.sq)")
set(boots "kiv host --plugins a/b boots it")
expect("0: plug-in made: a/b/kamera-ä ${files}\n${boots}\n" "" kamera-ä --plugins a/b)
file(SHA256 "${WORK}/a/b/kamera-ä/main.sq" before)
expect("1: " "kiv plugin: a/b/kamera-ä: there is something already" kamera-ä -p a/b)
file(SHA256 "${WORK}/a/b/kamera-ä/main.sq" after)
expect_equal("what was there" "${after}" "${before}")
file(WRITE "${WORK}/Plugins/file" "")
expect("1: " "there is something already" file)
foreach(name "../up" "a/b" "C:" "nul" "a..b" "..")
    expect("1: " "kiv plugin: ${name}: no name of a plug-in" ${name})
endforeach()
expect("2: " "NAME is required")
file(GLOB_RECURSE made RELATIVE "${WORK}" "${WORK}/*")
list(LENGTH made made)
expect_equal("files in all" "${made}" "4")

# It boots; another plug-in ends the host when it has come to its end.
file(WRITE "${WORK}/a/b/z/autoexec.sq" "local info = std.info
std.info = function(text) { info(text); if (text == \"kamera-ä: step 3\") host.end(\"done\") }")
run(COMMAND ${kiv} host --plugins a/b)
expect_equal("status of the host" "${status}" "0")
foreach(part "[kamera-ä] starting main\n" "kamera-ä: hello, world\n" "kamera-ä: step 3\n" "kamera-ä: bye\n")
    expect_part("log of the host" "${out}${err}" "${part}")
endforeach()
finish()
