# Fails when a source of the driver includes a header of a floor above its own. The floors, from
# the ground up: base (the driver object, its records and what every layer uses, beside the public
# header), then codec and lists side by side, then image, then driver (the entry points, the
# scheduler and reply handling). A folder may include its own headers and those of lower floors;
# codec and lists do not include each other.
#   cmake -DSOURCE_DIR=<repository> -P check_layers.cmake
set(floor_include 0)
set(floor_base 0)
set(floor_codec 1)
set(floor_lists 1)
set(floor_image 2)
set(floor_driver 3)

set(found "")
foreach(folder base codec lists image driver)
    file(GLOB sources RELATIVE ${SOURCE_DIR} ${SOURCE_DIR}/${folder}/*.h ${SOURCE_DIR}/${folder}/*.cpp)
    foreach(source IN LISTS sources)
        file(STRINGS ${SOURCE_DIR}/${source} includes REGEX "^#include \"[a-z]+/")
        foreach(line IN LISTS includes)
            string(REGEX REPLACE "^#include \"([a-z]+)/.*$" "\\1" target "${line}")
            if(target STREQUAL folder)
                continue()
            endif()
            if(NOT DEFINED floor_${target} OR NOT floor_${target} LESS floor_${folder})
                list(APPEND found "${source}: ${line}")
            endif()
        endforeach()
    endforeach()
endforeach()
if(found)
    list(JOIN found "\n  " found)
    message(FATAL_ERROR "includes that do not point down:\n  ${found}")
endif()
message(STATUS "every include points to the same floor's folder or a lower floor")
