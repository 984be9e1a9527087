# The tour's application: readings lost between two runs, a gauge that begins anew, a plug-in that is not told.
include("${CMAKE_CURRENT_LIST_DIR}/Programs.cmake")
program(tides tides)
file(COPY "${CMAKE_CURRENT_LIST_DIR}/../../examples/tides/Plugins" DESTINATION "${WORK}")
run(COMMAND ${tides})
expect_equal("status" "${status}: ${err}" "0: ")
expect_part("the first run" "${out}" "[HIGHWATER] 480 cm is the highest so far\n")
run(COMMAND ${tides})
expect_equal("status" "${status}: ${err}" "0: ")
foreach(line "[TIDES] readings so far: 4" "[HIGHWATER] so far 480 cm" "[SUBPROCESS] [GAUGE] beginning with hour 4"
    "[TIDES] hour 7: 229 cm" "[TIDES] the end: four readings are enough")
    expect_part("the second run" "${out}" "${line}\n")
endforeach()
finish()
