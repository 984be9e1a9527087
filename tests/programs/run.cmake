# kiv run: scripts of the engine's that find something missing, threads that are not waited for, failures that pass for
# success, arguments lost on their way, log lines between what a script prints.
include("${CMAKE_CURRENT_LIST_DIR}/Programs.cmake")
program(kiv kiv)

# The script `text`, with these arguments: exit status, standard output, and a part of standard error.
function(gives status_and_out message text)
    file(WRITE "${WORK}/script.sq" "${text}")
    run(COMMAND ${kiv} run script.sq ${ARGN})
    expect_equal("${text}" "${status}: ${out}" "${status_and_out}")
    expect_part("standard error of ${text}" "${err}" "${message}")
    set(rows ${rows} PARENT_SCOPE)
endfunction()

# Status.
gives("0: " "" "")
gives("0: " "" "return \"text\"")
gives("255: " "" "std.sleep(1); return 255")
gives("1: " "kiv run: 256 is no exit status" "return 256")
gives("1: " "[ERROR] [SQ.COMPILER] script.sq(2): " "\nlocal a = ")
gives("1: before" "[ERROR] [SQ.INTERPRETER] the index 'nothing' does not exist\nCALLSTACK:\n* main() [script.sq:1]\n"
    "print(\"before\"); std.sleep(1); nothing()")
run(COMMAND ${kiv} run nowhere.sq)
expect_equal("no script" "${status}: ${err}" "1: kiv run: nowhere.sq: can't be read\n")

# Output as it is, pieces of lines too; the log elsewhere. Threads outlive the main chunk.
gives("3: ab\nc7" "[ERROR] loud" "print(\"a\"); error(\"loud\"); print(\"b\\n\"); ::print(\"c\" + 7); return 3")
gives("4: main, thread 0, thread 1, " ""
    "std.async(function() { foreach (i in [0, 1]) { std.sleep(5); print(\"thread \" + i + \", \") } })
     print(\"main, \"); return 4")
gives("0: done" "[ERROR] [SQ.INTERPRETER] thrown" "std.async(function() { throw \"thrown\" }); std.sleep(5); print(\"done\")")
gives("0: 2000" "" "for (local i = 0; i < 2000; ++i) std[\"yield\"](); print(2000)")

# Arguments, here and in functions; modules beside the script, wherever that is; a byte order mark, and the line that
# other systems find the interpreter by.
gives("0: 3 -x [1,2] größe, 3" "" "function f() { return vargv.len() }
print(vargv.len()); foreach (a in vargv) print(\" \" + a); std.sleep(1); print(\", \" + f())" -x [1,2] größe)
file(WRITE "${WORK}/folder/module.sq" "found <- \"module of \" + ::vargv[0]")
string(ASCII 239 187 191 mark)
file(WRITE "${WORK}/folder/script.sq" "${mark}#!kiv run\nimport(\"module\"); import(\"module\"); print(found)")
run(COMMAND ${kiv} run folder/script.sq mine)
expect_equal("a module" "${status}: ${out}${err}" "0: module of mine")

# What the engine's own interpreter has at the root.
gives("0: 3.0 2 4 ab x!" "" "local b = blob(4); b.writen(7, 'i')
print(format(\"%.1f %d %d \", sqrt(9), b.len() / 2, split(\"a,b,c,d\", \",\").len()) + strip(\" ab \"))
local f = file(\"x\", \"wb\"); f.writeblob(b); f.close(); rename(\"x\", \"y\"); remove(\"y\")
if (clock() >= 0 && time() > 0 && date().year > 2000 && regexp(\"b+\").match(\"bb\")) print(\" x\"); stdout.writen('!', 'b')")

# The engine's samples, unchanged.
set(has_coroutines "test coroutine\nsuspend passed [suspend 1]\nthe coroutine says ciao 1\n")
set(has_ackermann "n=2\nAck(3,2):29")
set(has_class "FakeNamespace.Utils.SuperClass")
set(has_matrix "283740 1077225 1470030 1873320")
set(has_methcall "true\ntrue\nTIME=")
set(has_list "oki doki")
set(has_regex "(str, getTemp(), (a+(b/c)))")
set(has_tailstate "state1\nstate2\nstate3\nstate1\n")
file(GLOB samples "${SAMPLES}/*.nut")
foreach(sample IN LISTS samples)
    cmake_path(GET sample STEM name)
    configure_file("${sample}" "${WORK}/${name}.nut" COPYONLY)
    run(COMMAND ${kiv} run ${name}.nut 2)
    expect_equal("sample ${name}" "${status} ${err}" "0 ")
    expect_part("sample ${name}" "${out}" "${has_${name}}")
endforeach()
if(NOT samples)
    message("the engine's samples are not there: skipped")
endif()
finish()
