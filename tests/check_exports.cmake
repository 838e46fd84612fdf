# Compares the dynamic symbols a shared library defines with a checked-in list.
#   cmake -DNM=<nm> -DLIBRARY=<library> -DEXPECTED=<list> -P check_exports.cmake
# The list holds one symbol per line; blank lines and lines starting with # are skipped.
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY}
    OUTPUT_VARIABLE table RESULT_VARIABLE failed)
if(failed)
    message(FATAL_ERROR "${NM} could not read ${LIBRARY}")
endif()
# Each line is "address type name"; the name is the last field.
string(REGEX MATCHALL "[^ \n]+\n" names "${table}")
string(REPLACE "\n" "" actual "${names}")
file(STRINGS ${EXPECTED} expected REGEX "^[^#]")

set(added ${actual})
list(REMOVE_ITEM added ${expected})
set(lost ${expected})
list(REMOVE_ITEM lost ${actual})
if(added OR lost)
    list(JOIN added "\n  " added)
    list(JOIN lost "\n  " lost)
    message(FATAL_ERROR "${LIBRARY} does not export what ${EXPECTED} lists.\n"
        "Exported but not listed:\n  ${added}\nListed but not exported:\n  ${lost}\n"
        "A new export must be meant: add it to the list, or give it internal linkage.")
endif()
list(LENGTH actual count)
message(STATUS "${count} exported symbols, as listed")
