# kiv item: forms that do not come back, messages that name the wrong place, refusals that pass for success, control
# characters that reach the terminal, arguments that the option parser or the system's character set spoils.
include("${CMAKE_CURRENT_LIST_DIR}/Programs.cmake")
program(kiv kiv)

function(gives expected)
    run(COMMAND ${kiv} item ${ARGN})
    expect_equal("kiv item ${ARGN}" "${status}: ${out}" "0: ${expected}\n")
    expect_equal("standard error of kiv item ${ARGN}" "${err}" "")
    set(rows ${rows} PARENT_SCOPE)
endfunction()

# Refused with a message that has `part`; nothing on standard output.
function(refuses part)
    run(COMMAND ${kiv} item ${ARGN})
    expect_equal("kiv item ${ARGN}" "${status}: ${out}" "1: ")
    expect_part("standard error of kiv item ${ARGN}" "${err}" "${part}")
    set(rows ${rows} PARENT_SCOPE)
endfunction()

# Known bytes in each form.
gives("0801" --to base16 1)
gives("CAE" --to base64 1)
gives("{<INT:1><STR:x>}" --to debug --from base16 0801037800)
gives("INT:1;x" --to path --from base16 0801037800)
gives("[\n    1,\n    2\n]" --to pretty "[1,2]")
gives("-5" -- -5)
foreach(value "{\"näme\":[1,2.5,null,true,{\"$buffer\":\"AAEC\"}],\"日本\":\"€\"}" "[[],{}]" "\"\"" "[1,2]")
    foreach(form base16 base64 base64crc json)
        run(COMMAND ${kiv} item --to ${form} "${value}")
        string(STRIP "${out}" text)
        gives("${value}" --from ${form} "${text}")
    endforeach()
endforeach()

# Where and why.
refuses("argument 1, offset 9, line 1, column 10: not JSON\n    {\"a\": tru}\n             ^\n" "{\"a\": tru}")
refuses("offset 5, line 1, column 4: not JSON; the text ends here\n    [\"€\n       ^" "[\"€")
refuses("offset 3, line 1, column 4: a character outside the alphabet" --from base64 abc$)
refuses("offset 0, line 1, column 1: the checksum does not match" --from base64crc AAAAAAAA)
refuses("offset 4, line 1, column 5: no bytes are encoded by a text of this length" --from base16 08011)
refuses("from offset 3 on are no element" --from base16 0801FF08)
gives("{<INT:1><END><TRAIL:1>}" --to debug --from base16 0801FF08)
refuses("nowhere.json: can't be read" --input nowhere.json)
refuses("can't be read" --input .)

# Neither escape sequences nor line feeds of a value reach the terminal; nor do those of a refused text.
gives("{<STR:\\x1B[1m\\n\\\\>}" --to debug --from base16 031B5B316D0A5C00)
gives("\"\\u001b\\u009b\\u007f\"" --from base16 031BC29B7F00)
string(ASCII 27 escape)
run(COMMAND ${kiv} item "[${escape}[2J")
string(FIND "${err}" "${escape}" position)
expect_equal("an escape character in a message" "${position}" "-1")

# Files: whole or by line, with the line ends and the mark that Windows editors leave; names beyond ASCII.
file(WRITE "${WORK}/Größe.json" "\n{\n  \"a\": 1,\n  \"b\": x\n}\n")
refuses("Größe.json, offset 20, line 4, column 8: not JSON" -i Größe.json)
string(ASCII 239 187 191 mark)
file(WRITE "${WORK}/lines.txt" "${mark}1\r\n\r\n  [2\r\n\"drei\"")
run(COMMAND ${kiv} item --lines -i lines.txt)
expect_equal("good lines beside a bad one" "${status}: ${out}" "1: 1\n\"drei\"\n")
expect_part("the bad line" "${err}" "lines.txt, offset 12, line 3, column 5: not JSON")
expect_part("the count" "${err}" "kiv item: 2 converted, 1 refused")
run(INPUT "${WORK}/lines.txt" COMMAND ${kiv} item -l)
expect_part("standard input" "${err}" "standard input, offset 12, line 3, column 5")

foreach(wrong "item;--from;debug;1" "item;--nonsense" "nonsense" "")
    run(COMMAND ${kiv} ${wrong})
    expect_equal("kiv ${wrong}" "${status}: ${out}" "2: ")
endforeach()
finish()
