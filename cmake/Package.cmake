# What `cmake --install` lays down beside the programs: libraries, headers, schemas, the schema
# compiler, a CMake package and a pkg-config file.

include(CMakePackageConfigHelpers)

get_property(libraries GLOBAL PROPERTY INVARAD_LIBRARIES)
install(TARGETS ${libraries} EXPORT InvAradTargets
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/InvArad)

set(packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/InvArad)
set(shareDir ${CMAKE_INSTALL_DATADIR}/InvArad)
install(EXPORT InvAradTargets NAMESPACE InvArad:: DESTINATION ${packageDir})
configure_package_config_file(cmake/InvAradConfig.cmake.in InvAradConfig.cmake
                              INSTALL_DESTINATION ${packageDir} PATH_VARS shareDir)
write_basic_package_version_file(InvAradConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/InvAradConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/InvAradConfigVersion.cmake cmake/MoxModel.cmake
        DESTINATION ${packageDir})

install(DIRECTORY schema/ DESTINATION ${shareDir}/schema FILES_MATCHING PATTERN "*.mox")
install(DIRECTORY moxc/ DESTINATION ${shareDir}/moxc
        FILES_MATCHING PATTERN "*.py" PATTERN "*.j2" PATTERN "__pycache__" EXCLUDE)

# GDB looks for it under the full name of the library.
install(FILES tools/gdb/mox_printers.py
        DESTINATION ${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR}
        RENAME libMox.so.${PROJECT_VERSION}-gdb.py)

file(RELATIVE_PATH pkgconfigToPrefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/InvArad.pc.in InvArad.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/InvArad.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
