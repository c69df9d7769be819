# mox_add_model(TARGET SCHEMA file [MODELS target...] [SOURCES file...] [HEADERS file...])
# A shared library of the model that a schema declares. MODELS are the targets of the imported
# models; SOURCES the hand-written reactions and value classes (values/ValueClass.h); HEADERS their
# headers below the schema's folder, which <TARGET.h> includes by their path from there. Used by
# this project and by those that find it.

find_program(MOXC_PYTHON NAMES python3 PATHS /usr/bin NO_DEFAULT_PATH)
if(NOT MOXC_PYTHON)
  find_program(MOXC_PYTHON NAMES python3 REQUIRED)
endif()
if(NOT MOXC_SCRIPT)
  set(MOXC_SCRIPT ${CMAKE_CURRENT_LIST_DIR}/../moxc/moxc.py)
endif()
execute_process(COMMAND ${MOXC_PYTHON} -c "import jinja2" RESULT_VARIABLE result ERROR_QUIET)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "The schema compiler needs Jinja2 for ${MOXC_PYTHON} "
                      "(Debian: apt-get install python3-jinja2)")
endif()

function(mox_add_model target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "SCHEMA" "MODELS;SOURCES;HEADERS")
  get_filename_component(schema ${arg_SCHEMA} ABSOLUTE)
  get_filename_component(schemaDir ${schema} DIRECTORY)
  set(out ${CMAKE_CURRENT_BINARY_DIR}/generated/${target})
  set(imports --import-dir ${schemaDir})
  foreach(model IN LISTS arg_MODELS)
    get_target_property(modelSchemaDir ${model} MOX_SCHEMA_DIR)
    list(APPEND imports --import-dir ${modelSchemaDir})
  endforeach()

  set(command ${MOXC_PYTHON} ${MOXC_SCRIPT} --out ${out} ${imports})
  foreach(header IN LISTS arg_HEADERS)
    list(APPEND command --public-header ${header})
  endforeach()
  execute_process(COMMAND ${command} --list-outputs ${schema} OUTPUT_VARIABLE outputs
                  RESULT_VARIABLE result OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "moxc can't read ${schema}")
  endif()
  string(REPLACE "\n" ";" outputs "${outputs}")
  # Asked for at configure time: a schema that gains a type gains files.
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${schema} ${MOXC_SCRIPT})

  set(sources)
  set(headers)
  foreach(output IN LISTS outputs)
    cmake_path(ABSOLUTE_PATH output BASE_DIRECTORY ${out})
    if(output MATCHES "\\.cc$")
      list(APPEND sources ${output})
    else()
      list(APPEND headers ${output})
    endif()
  endforeach()
  # moxc leaves files with the same content untouched; the stamp says that it ran.
  set(stamp ${out}/${target}.stamp)
  add_custom_command(
    OUTPUT ${stamp}
    BYPRODUCTS ${sources} ${headers}
    COMMAND ${command} --depfile ${out}/${target}.d --depfile-target ${stamp} ${schema}
    COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
    DEPFILE ${out}/${target}.d
    DEPENDS ${schema}
    COMMENT "Compiling schema ${arg_SCHEMA}"
    VERBATIM)
  add_custom_target(${target}_generated DEPENDS ${stamp})

  add_library(${target} SHARED ${sources} ${arg_SOURCES})
  add_dependencies(${target} ${target}_generated)
  target_sources(${target} PUBLIC FILE_SET HEADERS BASE_DIRS ${out} FILES ${headers})
  if(arg_HEADERS)
    list(TRANSFORM arg_HEADERS PREPEND ${schemaDir}/)
    target_sources(${target} PUBLIC FILE_SET written TYPE HEADERS
                                      BASE_DIRS ${schemaDir} FILES ${arg_HEADERS})
  endif()
  target_link_libraries(${target} PUBLIC InvArad::Mox ${arg_MODELS})
  # Types are immortal: their code has to stay when a program closes the library.
  target_link_options(${target} PRIVATE LINKER:-z,nodelete)
  # A client may reach the model by names alone; then it refers to nothing in the library.
  target_link_options(${target} INTERFACE LINKER:--no-as-needed)
  # Exported is what the headers say: see Mox/Api.h. Clang would hide what is defined in another
  # namespace block than it was declared in.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden
                                               VISIBILITY_INLINES_HIDDEN ON)
  endif()
  # Each generated source file begins with its own header: no need to check that it stands alone.
  set_target_properties(${target} PROPERTIES MOX_SCHEMA_DIR ${schemaDir}
                                             VERIFY_INTERFACE_HEADER_SETS OFF)
endfunction()
