# kiv store: keys and values taken for something else, damage that is overlooked or placed wrongly, entries lost before
# it, files spoiled by a command that fails, differences that are not told, failures that pass for success.
include("${CMAKE_CURRENT_LIST_DIR}/Programs.cmake")
program(kiv kiv)

# Exit status, standard output, and a part of standard error.
function(expect status_and_out message)
    run(COMMAND ${kiv} store ${ARGN})
    expect_equal("kiv store ${ARGN}" "${status}: ${out}" "${status_and_out}")
    expect_part("standard error of kiv store ${ARGN}" "${err}" "${message}")
    set(rows ${rows} PARENT_SCOPE)
    set(err "${err}" PARENT_SCOPE)
endfunction()

# Makes the file, what is missing above a key, and changes what is there.
set(gamma "[\"viewer\",\"gamma\"]")
expect("0: " "Größe.store: file made, entry added, 3 entries now" set Größe.store "${gamma}" 2.5)
expect("0: " "entry added, 4 entries now" set Größe.store "[\"viewer\",-5]" -- -7)
expect("0: " "entry added, 5 entries now" set Größe.store "näme" "{\"a\":[1,null]}")
expect("0: " "entry changed, 5 entries now" set Größe.store "${gamma}" "\"\\u001b\"")
file(GLOB files RELATIVE "${WORK}" "${WORK}/*")
expect_equal("files" "${files}" "Größe.store")
configure_file("${WORK}/Größe.store" "${WORK}/good.store" COPYONLY)

expect("0: {} = {}
{<STR:näme>} = {<PREFIX:table><ITEM:{<STR:a><ITEM:{<INT:1><NIL>}>}>}
{<STR:viewer>} = {}
{<STR:viewer><INT:-5>} = {<INT:-7>}
{<STR:viewer><STR:gamma>} = {<STR:\\x1B>}
" "kiv store: 5 entries\n" dump good.store)
expect("0: {}
  näme = PREFIX:table;ITEM:{a;ITEM:{INT:1;NIL}}
  viewer
    INT:-5 = INT:-7
    gamma = \\x1B
" "5 entries, 5 of them" tree good.store)
expect("0: {}\n  näme = PREFIX:table;ITEM:{a;ITEM:{INT:1;NIL}}\n  viewer  (2 below)\n" "" tree good.store -d 1)
expect("0: viewer\n  INT:-5 = INT:-7\n  gamma = \\x1B\n" "5 entries, 3 of them" tree good.store viewer)
expect("0: viewer;INT:-5 = INT:-7\n" "1 of them" tree good.store "[\"viewer\",-5]")
expect("1: " "0 of them" tree good.store nothing)
expect("0: {\"a\":[1,null]}\n" "" get good.store näme)
expect("0: {<STR:\\x1B>}\n" "" get good.store "${gamma}" --to debug)
expect("1: " "good.store: no entry {<STR:gamma>}" get good.store gamma)
expect("0: []\n" "" get good.store "[]")

# Keys without those above them, which only other programs leave.
configure_file("${CMAKE_CURRENT_LIST_DIR}/gaps.store" "${WORK}/gaps.store" COPYONLY)
expect("0: {} (not stored)
  a (not stored)
    INT:1 (not stored)
      INT:2 = INT:7
    INT:2 (not stored)
      INT:1 (not stored)
        INT:1 = x
  b
" "3 entries, 3 of them" tree gaps.store)
expect("0: a (not stored)\n  INT:1 (not stored)  (1 below)\n  INT:2 (not stored)  (2 below)\n" "" tree gaps.store a -d 1)

# What is wrong with a key or a value, and where; the file stays as it is.
expect("1: " "KEY, offset 10, line 1, column 11: not JSON" set good.store "[\"viewer\" 1]" 1)
expect("1: " "VALUE, offset 3, line 1, column 4: not JSON; the text ends here" set good.store a "tru")
expect("1: " "KEY: no key of a store file" set good.store "[{\"$mark\":\"wildcard\"}]" 1)
expect("1: " "can't save 'nowhere/new.store': can't be created: " set nowhere/new.store a 1)
expect("1: " "can't be opened" set . a 1)
expect("0: " "5 entries in A, 5 in B, equal" compare good.store Größe.store)

# Copies, with and without parts, also onto the same file.
expect("0: " "5 of 5 entries copied to copy.store" copy good.store copy.store)
expect("0: " "equal" compare good.store copy.store)
expect("0: " "3 of 5 entries copied to copy.store" copy copy.store copy.store -x "${gamma}" --exclude "[\"näme\"]")
expect("1: " "can't load 'nowhere.store': it can't be opened" copy nowhere.store copy.store)
run(COMMAND ${kiv} store set copy.store "[\"viewer\",-5]" -- -8)
run(COMMAND ${kiv} store set copy.store "[\"viewer\",6]" 1)
expect("1: only in A: {<STR:näme>} = {<PREFIX:table><ITEM:{<STR:a><ITEM:{<INT:1><NIL>}>}>}
different from byte 1 of the value on: {<STR:viewer><INT:-5>} = {<INT:-7>}, in B {<INT:-8>}
only in B: {<STR:viewer><INT:6>} = {<INT:1>}
only in A: {<STR:viewer><STR:gamma>} = {<STR:\\x1B>}
" "5 entries in A, 4 in B: 2 only in A, 1 only in B, 1 different" compare good.store copy.store)

# Damage: what comes before it is listed, nothing is made of it.
file(SIZE "${WORK}/good.store" size)
cut("${WORK}/good.store" 0 60 "${WORK}/cut.store")
set(damage "cut.store: damaged from offset 60 on: the file ends too early")
expect("1: {} = {}\n" "${damage}" dump cut.store)
expect_part("the count" "${err}" "1 entries, DAMAGED")
expect("1: {}\n" "${damage}" tree cut.store)
expect("1: []\n" "${damage}" get cut.store "[]")
expect("1: " "${damage}" get cut.store "${gamma}")
expect("1: " "${damage}" compare good.store cut.store)
expect("1: " "can't load 'cut.store': damaged from offset 60 on" set cut.store a 1)
expect("1: " "can't load 'cut.store': damaged from offset 60 on" copy cut.store copy.store)
expect_equal("the copy" "${err}" "kiv store: can't load 'cut.store': damaged from offset 60 on: the file ends too early\n")
file(SIZE "${WORK}/cut.store" size)
expect_equal("size of the damaged file" "${size}" "60")

file(WRITE "${WORK}/text" "kivStore, but a text\n")
expect("1: " "text: damaged from offset 8 on: version 1969365036 of the format, which is unknown here" dump text)
expect("1: " "nowhere: can't be read" dump nowhere)
expect("1: " ".: can't be read" compare good.store .)

foreach(wrong "" "dump" "get;good.store" "set;good.store;a" "copy;good.store" "nonsense;good.store")
    run(COMMAND ${kiv} store ${wrong})
    expect_equal("kiv store ${wrong}" "${status}: ${out}" "2: ")
endforeach()
finish()
