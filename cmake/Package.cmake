# What `cmake --install` lays down beside the programs: libraries, headers, schemas, the schema
# compiler, a CMake package and a pkg-config file; and the same as Debian packages, made by cpack.

include(CMakePackageConfigHelpers)

# Each library goes to a package of its own name; what is for building against them, to dev.
# Behind the component: further sets of headers.
function(install_library target component)
  set(headerSets)
  foreach(set HEADERS ${ARGN})
    list(APPEND headerSets FILE_SET ${set}
                           DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/InvArad COMPONENT dev)
  endforeach()
  install(TARGETS ${target} EXPORT InvAradTargets
          LIBRARY COMPONENT ${component} NAMELINK_COMPONENT dev ${headerSets})
endfunction()
install_library(Mox libmox)
install_library(InvSiblings libinvarad written)
install_library(InvArad libinvarad)
install(TARGETS MoxSimulation EXPORT InvAradTargets
        ARCHIVE COMPONENT dev
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/InvArad COMPONENT dev)

set(packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/InvArad)
set(shareDir ${CMAKE_INSTALL_DATADIR}/InvArad)
install(EXPORT InvAradTargets NAMESPACE InvArad:: DESTINATION ${packageDir}
        COMPONENT dev)
configure_package_config_file(cmake/InvAradConfig.cmake.in InvAradConfig.cmake
                              INSTALL_DESTINATION ${packageDir} PATH_VARS shareDir)
write_basic_package_version_file(InvAradConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/InvAradConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/InvAradConfigVersion.cmake cmake/MoxModel.cmake
              cmake/MoxSimulation.cmake
        DESTINATION ${packageDir} COMPONENT dev)

install(DIRECTORY schema/ DESTINATION ${shareDir}/schema COMPONENT dev
        FILES_MATCHING PATTERN "*.mox")
install(DIRECTORY moxc/ DESTINATION ${shareDir}/moxc COMPONENT dev
        FILES_MATCHING PATTERN "*.py" PATTERN "*.j2" PATTERN "__pycache__" EXCLUDE)
install(FILES simulation/main.cc DESTINATION ${shareDir}/simulation COMPONENT dev)

# GDB looks for it under the full name of the library.
install(FILES tools/gdb/mox_printers.py
        DESTINATION ${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR}
        RENAME libMox.so.${PROJECT_VERSION}-gdb.py COMPONENT libmox)

file(RELATIVE_PATH pkgconfigToPrefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/InvArad.pc.in InvArad.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/InvArad.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT dev)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME invarad)
set(CPACK_PACKAGE_VENDOR "The InvArad authors")
set(CPACK_PACKAGE_CONTACT "The InvArad authors <invarad@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL libmox libinvarad dev)
if(INVARAD_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_LIBMOX_PACKAGE_NAME libmox)
set(CPACK_DEBIAN_LIBMOX_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBINVARAD_PACKAGE_NAME libinvarad)
set(CPACK_DEBIAN_LIBINVARAD_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libinvarad-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "python3, python3-jinja2")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME inventory-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
include(CPack)
cpack_add_component(libmox DESCRIPTION "Objects that are observed and replicated: the run-time")
cpack_add_component(libinvarad DEPENDS libmox DESCRIPTION "The object model of switching chips")
cpack_add_component(dev DEPENDS libinvarad libmox
                    DESCRIPTION "Headers, schemas and the schema compiler")
cpack_add_component(tools DEPENDS libinvarad libmox
                    DESCRIPTION "Programs that serve, show and change an inventory")
