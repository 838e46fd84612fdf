# Fails when the driver's files depend on each other against its floors: when a file includes a
# header of a higher floor, when (given the object files) a function calls one defined on a higher
# floor, or when files include or call each other in a circle, on one floor or across several.
#   cmake -DSOURCE_DIR=<repository> [-DNM=<nm> -DOBJECTS=<object files>] -P check_layers.cmake
#
# A file is judged by its module, the name it shares with its header (codec/Func_Write.cpp and
# codec/Func_Write.h are codec/Func_Write). Calls are read from each object's symbols (nm): an
# undefined function that another object defines as an ordinary global function is a call to it.
# Data (the driver object, the host's area pointers) and the inline functions and template
# instances that every object keeps a copy of are not calls.
cmake_policy(VERSION 3.25)

# The floors, from the ground up. A module sits on its folder's floor unless it is named below.
set(floor_include 0)
set(floor_base 0)     # the driver object, the exchange in progress, and what every floor uses
set(floor_codec 1)    # frames and checks, made from what they are handed
set(floor_lists 1)    # the variable lists and read planning
set(floor_image 2)    # the register image: replies stored, host reads and writes
set(floor_driver 4)   # entry points of the polling pair, the scheduler, reply handling
# A write exchange shows its value in the image as it starts, so the two modules that start write
# exchanges sit above the image, though their frames are the codec's.
set(floor_codec/Func_Write 3)
set(floor_codec/Func_Remote 3)

function(floor_of module out)
    if(DEFINED floor_${module})
        set(${out} ${floor_${module}} PARENT_SCOPE)
        return()
    endif()
    string(REGEX REPLACE "/.*$" "" folder "${module}")
    set(${out} ${floor_${folder}} PARENT_SCOPE)
endfunction()

set(modules "")
set(found "")
# The first edge from module `from` to module `to`, for `why`; a climb is reported at once.
function(add_edge from to why)
    if(from STREQUAL to)
        return()
    endif()
    if(to IN_LIST edges_${from})
        return()
    endif()
    set(edges_${from} ${edges_${from}} ${to} PARENT_SCOPE)
    set(why_${from}_${to} "${why}" PARENT_SCOPE)
    floor_of(${from} from_floor)
    floor_of(${to} to_floor)
    if(to_floor GREATER from_floor)
        set(found "${found};${from} (floor ${from_floor}) ${why} (floor ${to_floor})" PARENT_SCOPE)
    endif()
endfunction()

# Includes of the driver's own headers; the public header is the ground.
foreach(folder base codec lists image driver)
    file(GLOB sources RELATIVE ${SOURCE_DIR} ${SOURCE_DIR}/${folder}/*.h ${SOURCE_DIR}/${folder}/*.cpp)
    foreach(source IN LISTS sources)
        string(REGEX REPLACE "\\.(h|cpp)$" "" module "${source}")
        list(APPEND modules ${module})
        file(STRINGS ${SOURCE_DIR}/${source} includes REGEX "^#include \"[a-z]+/")
        foreach(line IN LISTS includes)
            string(REGEX REPLACE "^#include \"([a-z]+/[A-Za-z_]+)\\.h\".*$" "\\1" target "${line}")
            string(REGEX REPLACE "/.*$" "" target_folder "${target}")
            if(NOT DEFINED floor_${target_folder})
                list(APPEND found "${source}: ${line} names no folder of the driver")
                continue()
            endif()
            add_edge(${module} ${target} "includes ${target}.h")
        endforeach()
    endforeach()
endforeach()
list(REMOVE_DUPLICATES modules)

# Calls: the ordinary global functions each object defines, then the ones it leaves undefined.
# Square brackets and semicolons in demangled names would upset CMake's lists.
if(OBJECTS)
    set(objects_by_module "")
    list(FILTER OBJECTS EXCLUDE REGEX "^$")
    foreach(object IN LISTS OBJECTS)
        if(NOT object MATCHES "/(base|codec|lists|image|driver)/([A-Za-z_]+)\\.cpp\\.o$")
            message(FATAL_ERROR "${object} is no object of a driver source")
        endif()
        set(module "${CMAKE_MATCH_1}/${CMAKE_MATCH_2}")
        execute_process(COMMAND ${NM} -C ${object} OUTPUT_VARIABLE table RESULT_VARIABLE failed)
        if(failed)
            message(FATAL_ERROR "${NM} could not read ${object}")
        endif()
        string(REGEX REPLACE "[][;]" "_" table "${table}")
        string(REPLACE "\n" ";" lines "${table}")
        set(undefined_${module} "")
        foreach(line IN LISTS lines)
            if(line MATCHES "^[0-9a-f]+ T (.+)$")
                string(MD5 key "${CMAKE_MATCH_1}")
                set(defined_${key} ${module})
            elseif(line MATCHES "^ +U (.+)$")
                list(APPEND undefined_${module} "${CMAKE_MATCH_1}")
            endif()
        endforeach()
        list(APPEND objects_by_module ${module})
    endforeach()
    foreach(module IN LISTS objects_by_module)
        foreach(symbol IN LISTS undefined_${module})
            string(MD5 key "${symbol}")
            if(DEFINED defined_${key})
                add_edge(${module} ${defined_${key}} "calls ${symbol}")
            endif()
        endforeach()
    endforeach()
endif()

# Circles: modules that depend on no module left, or that no module left depends on, are taken
# away until none can be; what remains depends on itself through others.
set(remaining ${modules})
set(progress TRUE)
while(progress)
    set(progress FALSE)
    set(targets "")
    foreach(module IN LISTS remaining)
        list(APPEND targets ${edges_${module}})
    endforeach()
    foreach(module IN LISTS remaining)
        set(sink TRUE)
        foreach(target IN LISTS edges_${module})
            if(target IN_LIST remaining)
                set(sink FALSE)
                break()
            endif()
        endforeach()
        if(sink OR NOT module IN_LIST targets)
            list(REMOVE_ITEM remaining ${module})
            set(progress TRUE)
        endif()
    endforeach()
endwhile()
foreach(module IN LISTS remaining)
    foreach(target IN LISTS edges_${module})
        if(target IN_LIST remaining)
            list(APPEND found "in a circle: ${module} ${why_${module}_${target}}")
        endif()
    endforeach()
endforeach()

list(FILTER found EXCLUDE REGEX "^$")
if(found)
    list(JOIN found "\n  " found)
    message(FATAL_ERROR "the driver's files depend on each other against its floors:\n  ${found}")
endif()
if(OBJECTS)
    message(STATUS "every include and every call points to the same floor or down, in no circle")
else()
    message(STATUS "every include points to the same floor or down, in no circle")
endif()
