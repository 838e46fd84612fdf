# Qt 4 ships no CMake package: korvan_import_qtcore4(PREFIX) describes its QtCore as the imported
# target korvan::QtCore. Used by the build (cmake/qt.cmake) and by the installed CMake package.
function(korvan_import_qtcore4 prefix)
    if(NOT IS_ABSOLUTE "${prefix}" OR NOT EXISTS "${prefix}/include/QtCore/QString"
       OR NOT EXISTS "${prefix}/lib/libQtCore.so.4")
        message(FATAL_ERROR "KORVAN_QT4_PREFIX='${prefix}' is not an absolute path to a Qt 4 "
            "prefix holding include/QtCore and lib/libQtCore.so.4")
    endif()
    add_library(korvan::QtCore SHARED IMPORTED)
    # Qt's headers are system headers: their own warnings are not the project's.
    set_target_properties(korvan::QtCore PROPERTIES
        IMPORTED_LOCATION "${prefix}/lib/libQtCore.so.4"
        IMPORTED_SONAME libQtCore.so.4
        INTERFACE_INCLUDE_DIRECTORIES "${prefix}/include;${prefix}/include/QtCore"
        INTERFACE_SYSTEM_INCLUDE_DIRECTORIES "${prefix}/include;${prefix}/include/QtCore"
        INTERFACE_COMPILE_DEFINITIONS "QT_CORE_LIB;QT_SHARED")
endfunction()
