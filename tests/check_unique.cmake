# Fails when a shared library's dynamic symbol table holds a symbol of STB_GNU_UNIQUE binding.
# The dynamic loader keeps one definition of such a symbol per process, shared by every copy of
# the library however it was loaded, so two ports' copies would share that piece of state.
#   cmake -DREADELF=<readelf> -DLIBRARY=<library> -P check_unique.cmake
execute_process(COMMAND ${READELF} --dyn-syms --wide ${LIBRARY}
    OUTPUT_VARIABLE table RESULT_VARIABLE failed)
if(failed)
    message(FATAL_ERROR "${READELF} could not read ${LIBRARY}")
endif()
# "Num: Value Size Type Bind Vis Ndx Name"
string(REGEX MATCHALL "[^\n]* UNIQUE [^\n]*" unique "${table}")
if(unique)
    list(JOIN unique "\n" unique)
    message(FATAL_ERROR "${LIBRARY} has symbols that every loaded copy would share:\n${unique}\n"
        "Build it with -fno-gnu-unique, or keep the symbol out of the dynamic table.")
endif()
message(STATUS "no symbol of unique binding: every loaded copy keeps its own")
