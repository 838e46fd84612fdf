# Fails when a shared library holds writable data of its own beyond the driver object and the
# host's three area pointers: every piece of the driver's state belongs in PLC_driver, where a
# host can see it and one copy of the library has exactly one.
#   cmake -DNM=<nm> -DLIBRARY=<library> -P check_state.cmake
execute_process(COMMAND ${NM} --demangle ${LIBRARY} OUTPUT_VARIABLE table RESULT_VARIABLE failed)
if(failed)
    message(FATAL_ERROR "${NM} could not read ${LIBRARY}")
endif()
string(REPLACE "\n" ";" lines "${table}")
set(found "")
foreach(line IN LISTS lines)
    # "address type name": b, B, d, D are data and zero-initialised data, local or global.
    if(NOT line MATCHES "^[0-9a-f]+ [bBdD] (.+)$")
        continue()
    endif()
    set(name "${CMAKE_MATCH_1}")
    # The driver's globals, then what the compiler and linker put there (the names that start
    # with an underscore, exception-handling references, the destructor guard, ARM's mapping
    # symbols such as $d).
    if(name MATCHES "^(PLC_driver|LB|LW|RWI)$" OR name MATCHES "^_" OR name MATCHES "^DW\\.ref\\."
       OR name MATCHES "^completed\\.[0-9]+$" OR name MATCHES "^\\$[adtx](\\.|$)")
        continue()
    endif()
    list(APPEND found "${name}")
endforeach()
if(found)
    list(JOIN found "\n  " found)
    message(FATAL_ERROR "${LIBRARY} keeps state outside the driver object:\n  ${found}")
endif()
message(STATUS "no writable data but the driver object and the host's area pointers")
