# The Qt the driver is built against, as one target, korvan::QtCore, that everything links.
#
#   KORVAN_QT_MAJOR=5 (default)  Qt 5.15 Core, found as a CMake package (Debian's qtbase5-dev).
#   KORVAN_QT_MAJOR=4            Qt 4.8 Core, the panel runtimes' Qt, from KORVAN_QT4_PREFIX: a
#                                prefix holding include/QtCore and lib/libQtCore.so.4 (built by
#                                the Qt 4 script, or an integrator's panel SDK). Qt 4 ships no
#                                CMake package, so the target is described here.
#
# A host and the driver exchange Qt values inside the shared records, so both must be built
# against the same Qt major.
set(KORVAN_QT_MAJOR 5 CACHE STRING "Qt major version to build against: 5 or 4")
set_property(CACHE KORVAN_QT_MAJOR PROPERTY STRINGS 5 4)
set(KORVAN_QT4_PREFIX "" CACHE PATH "Qt 4.8 prefix (include/QtCore, lib/libQtCore.so.4)")

include(${CMAKE_CURRENT_LIST_DIR}/qtcore4.cmake)

if(KORVAN_QT_MAJOR STREQUAL "5")
    find_package(Qt5 5.15 REQUIRED COMPONENTS Core)
    add_library(korvan::QtCore INTERFACE IMPORTED)
    set_target_properties(korvan::QtCore PROPERTIES INTERFACE_LINK_LIBRARIES Qt5::Core)
    set(KORVAN_QT_PKG_CONFIG "Qt5Core >= 5.15")
elseif(KORVAN_QT_MAJOR STREQUAL "4")
    korvan_import_qtcore4("${KORVAN_QT4_PREFIX}")
    set(KORVAN_QT_PKG_CONFIG "QtCore >= 4.8")
else()
    message(FATAL_ERROR "KORVAN_QT_MAJOR must be 5 or 4, not '${KORVAN_QT_MAJOR}'")
endif()
message(STATUS "Building against Qt ${KORVAN_QT_MAJOR}")

# A host's code as a panel's SDK compiles it: in the oldest C++ dialect its Qt takes (C++98 for
# Qt 4, C++11 for Qt 5), without GNU extensions. What a host includes must compile so.
function(korvan_host_dialect target)
    if(KORVAN_QT_MAJOR STREQUAL "4")
        set(standard 98)
    else()
        set(standard 11)
    endif()
    set_target_properties(${target} PROPERTIES
        CXX_STANDARD ${standard} CXX_STANDARD_REQUIRED ON CXX_EXTENSIONS OFF)
endfunction()

# What is installed is built with the library search path it is installed with, not with one
# CMake would rewrite at install time: to make room for the rewrite CMake pads the build's path
# with empty entries, and the loader reads an empty entry as the current folder. A Qt 4 is nowhere
# a loader looks by itself, so a Qt 4 build also searches the one it was linked with (an SDK's
# prefix is usually where the panel keeps its Qt 4 as well).
function(korvan_installed_search_path target)
    set_target_properties(${target} PROPERTIES BUILD_WITH_INSTALL_RPATH ON)
    if(KORVAN_QT_MAJOR STREQUAL "4")
        set_property(TARGET ${target} APPEND PROPERTY INSTALL_RPATH "${KORVAN_QT4_PREFIX}/lib")
    endif()
endfunction()
