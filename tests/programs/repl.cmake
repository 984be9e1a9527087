# kiv repl: input that is cut or glued, values that can't be read, threads that stand still between inputs, errors that
# end it or come without their place.
include("${CMAKE_CURRENT_LIST_DIR}/Programs.cmake")
program(kiv kiv)

# A session: what its lines put on standard output, its exit status, and the whole of standard error.
function(session text shown status_and_errors)
    file(WRITE "${WORK}/session" "${text}")
    run(INPUT "${WORK}/session" COMMAND ${kiv} repl)
    expect_equal("${text}" "${out}" "${shown}")
    expect_equal("status and errors of ${text}" "${status}: ${err}" "${status_and_errors}")
    set(rows ${rows} PARENT_SCOPE)
endfunction()

# Values.
session([=[1 + 2
_ * 2.0
0.1
"a\"\\\n" + '\x1b'.tochar()
null
a <- true
[1, "x", [], {}, null, [[[[[[[1]]]]]]]]
{ b = 1, ["a b"] = false, [7] = "seven" }
function twice(x) { return x * 2 }
[twice, print, class {}, newthread(twice)]
class Plain {}
class Shown { function _tostring() { return "its text" } }
[Plain, Plain(), Shown()]
array(30, 12345)
{ first = "long enough that it takes two lines", second = { third = "and this is the other one" } }
array(1000).len()
]=] [=[3
6.0
0.1
"a\"\\\n\x1B"
true
[1, "x", [], {}, null, [[[[[[...]]]]]]]
{[7] = "seven", ["a b"] = false, b = 1}
[(function twice), (function print), (class), (thread)]
[(class Plain), (Plain), (Shown: its text)]
[
    12345, 12345, 12345, 12345, 12345, 12345, 12345, 12345, 12345, 12345,
    12345, 12345, 12345, 12345, 12345, 12345, 12345, 12345, 12345, 12345,
    12345, 12345, 12345, 12345, 12345, 12345, 12345, 12345, 12345, 12345
]
{
    first = "long enough that it takes two lines",
    second = {third = "and this is the other one"}
}
1000
]=] "0: ")
# What is deep or long is cut.
session("cycle <- {}; (function() { cycle.self <- cycle })()
cycle
local s = \"1234567890\"; while (s.len() < 300) s += s; return [s]
local a = array(300, 1); a[0] = 22; return a
" "{self = {self = {self = {self = {self = {self = {...}}}}}}}
[
    \"12345678901234567890123456789012345678901234567890123456789012345678901234567890123456789012345678901234567890\
123456789012345678901234567890123456789012345678901234567890123456789012345678901234567890\"... (320 bytes)
]
[
    22, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    ... (300 elements)
]
" "0: ")

# Input of several lines.
session([=[function area(w,
              h) { // ) not counted: "
    return w * /* nor ( this
    */ h
}
area(2,

     3)
@"one ""(""
two"
1 +
2; # {
"(" + '['
local i = 1; i++
5]=] [=[6
"one \"(\"\ntwo"
"(91"
5
]=] "0: ")

# Errors, with their place; what comes behind goes on. Threads go on between inputs, and at the top.
session("1 + nothing
print(\"piece\")
)
function deep() { throw \"thrown\" }
function outer() { return deep() + 1 }

outer()
\"on\"
std.async(function() { std.sleep(5); print(\"from a thread\\n\"); fired <- true })
while (!(\"fired\" in getroottable())) std[\"yield\"]()
std.sleep(1)
throw \"last\"
" "piece\n\"on\"\nfrom a thread\n" "1: [ERROR] [SQ.INTERPRETER] the index 'nothing' does not exist
    main() [input:1]
[ERROR] [SQ.COMPILER] input(1): expression expected
[ERROR] [SQ.INTERPRETER] thrown
    deep() [input:1]
    outer() [input:1]
    main() [input:1]
[ERROR] [SQ.INTERPRETER] last
    main() [input:1]
")

# Modules of the folder; the end.
file(WRITE "${WORK}/module.sq" "found <- vargv")
session("import(\"module\")\n::found\n.quit\n1\n" "[]\n" "0: ")
session("f(\n" "" "1: kiv repl: the input ends too early\n")
string(REPEAT "1234567890" 7000 long)
session("${long}\n1\n" "1\n" "1: kiv repl: the line is too long\n")
finish()
