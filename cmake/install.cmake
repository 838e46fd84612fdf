# What `cmake --install` places, and the Debian package CPack makes of it: the library with
# its soname links, the public header, a CMake package, a pkg-config file and the programs
# under tools/.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(korvan_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${PROJECT_NAME})

install(TARGETS korvan_qa_qb_series_port EXPORT korvan_targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT korvan_targets NAMESPACE korvan:: FILE ${PROJECT_NAME}Targets.cmake
    DESTINATION ${korvan_cmake_dir})
configure_package_config_file(cmake/config.cmake.in ${PROJECT_NAME}Config.cmake
    INSTALL_DESTINATION ${korvan_cmake_dir})
write_basic_package_version_file(${PROJECT_NAME}ConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${PROJECT_NAME}Config.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/${PROJECT_NAME}ConfigVersion.cmake
    DESTINATION ${korvan_cmake_dir})
# The package describes Qt 4's QtCore itself, as the build does.
if(KORVAN_QT_MAJOR STREQUAL "4")
    install(FILES cmake/qtcore4.cmake DESTINATION ${korvan_cmake_dir})
endif()

# The .pc file finds the tree relative to itself, so it holds wherever the tree is installed
# (a staging prefix, /usr in the package).
file(RELATIVE_PATH korvan_pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" korvan_pc_to_prefix ${korvan_pc_to_prefix})
configure_file(cmake/pkg-config.pc.in ${PROJECT_NAME}.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${PROJECT_NAME}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Every executable defined under tools/ is installed, without a rule of its own; the installed
# programs find the installed library next to them.
function(korvan_install_programs dir)
    get_property(targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS targets)
        get_target_property(type ${target} TYPE)
        if(type STREQUAL "EXECUTABLE")
            set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${korvan_bin_to_lib}")
            korvan_installed_search_path(${target})
            install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
        endif()
    endforeach()
    get_property(subdirs DIRECTORY ${dir} PROPERTY SUBDIRECTORIES)
    foreach(subdir IN LISTS subdirs)
        korvan_install_programs(${subdir})
    endforeach()
endfunction()
file(RELATIVE_PATH korvan_bin_to_lib /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
korvan_install_programs(${PROJECT_SOURCE_DIR}/tools)
# The dissector for the programs' captures, for a Wireshark plugins folder or -X lua_script:.
install(FILES tools/wireshark/korvan.lua
    DESTINATION ${CMAKE_INSTALL_DATADIR}/${PROJECT_NAME}/wireshark)

set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_VENDOR "korvan")
set(CPACK_PACKAGE_CONTACT "korvan driver maintainers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "PLC communication driver for operator panels")
set(CPACK_STRIP_FILES ON)
# Debian package names allow no underscore.
string(REPLACE "_" "-" CPACK_DEBIAN_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
# What dpkg-shlibdeps reports for the library and the programs (libpcap: their captures),
# written out because it cannot inspect a cross build's binaries.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.14), libgcc-s1 (>= 3.0), \
libpcap0.8 (>= 0.9.8), libqt5core5a (>= 5.15.1), libstdc++6 (>= 5)")
# Debian has no Qt 4 to depend on: a Qt 4 build is packed as a .tar.gz of the installed tree,
# for a panel image that brings its own Qt 4.
if(KORVAN_QT_MAJOR STREQUAL "4")
    set(CPACK_GENERATOR TGZ)
    set(CPACK_PACKAGE_FILE_NAME
        "${PROJECT_NAME}-${PROJECT_VERSION}-qt4-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}")
else()
    set(CPACK_GENERATOR DEB)
endif()
# CPack asks dpkg, which names the build machine's architecture, not a cross target's.
if(CMAKE_CROSSCOMPILING)
    if(CMAKE_SYSTEM_PROCESSOR STREQUAL "arm")
        set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
    elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
        set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
    else()
        message(FATAL_ERROR "no Debian architecture known for ${CMAKE_SYSTEM_PROCESSOR}")
    endif()
endif()
include(CPack)
