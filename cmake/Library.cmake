# invarad_library(TARGET [BASE_DIR directory HEADERS file...])
# What the project's own shared libraries have in common: a version, an alias InvArad::TARGET as
# in the installed package, and public headers, which are installed and each checked to compile by
# itself (target all_verify_interface_header_sets). A model has its headers already.

function(invarad_library target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "BASE_DIR" "HEADERS")
  if(arg_HEADERS)
    target_sources(${target} PUBLIC FILE_SET HEADERS BASE_DIRS ${arg_BASE_DIR}
                                                     FILES ${arg_HEADERS})
  endif()
  target_include_directories(
    ${target} INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/InvArad>)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set(map ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/std.map)
  target_link_options(${target} PRIVATE LINKER:--version-script=${map})
  # Clang would hide what is defined in another namespace block than it was declared in.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden
                                               VISIBILITY_INLINES_HIDDEN ON)
  endif()
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${map}
                        VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                        INSTALL_RPATH "$ORIGIN")
  if(NOT TARGET InvArad::${target})
    add_library(InvArad::${target} ALIAS ${target})
  endif()
endfunction()

# invarad_program(TARGET source...): a program that is installed and finds its libraries.
function(invarad_program target)
  add_executable(${target} ${ARGN})
  file(RELATIVE_PATH libraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries}")
  install(TARGETS ${target} COMPONENT tools)
endfunction()
