# mox_add_simulation(MODEL [NAME name] [HISTORIES number])
# A program MODEL_simulation, in lower case, that plays random histories of processes which replicate
# trees of the model, and a test of that name that runs it. MODEL is a target of mox_add_model;
# HISTORIES how many the test plays in each world (100). docs/simulation.md is the program's manual.

if(NOT MOX_SIMULATION_MAIN)
  set(MOX_SIMULATION_MAIN ${CMAKE_CURRENT_LIST_DIR}/../simulation/main.cc)
endif()

function(mox_add_simulation model)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "NAME;HISTORIES" "")
  if(NOT arg_NAME)
    string(TOLOWER ${model}_simulation arg_NAME)
  endif()
  if(NOT arg_HISTORIES)
    set(arg_HISTORIES 100)
  endif()
  add_executable(${arg_NAME} ${MOX_SIMULATION_MAIN})
  target_link_libraries(${arg_NAME} PRIVATE ${model} InvArad::MoxSimulation)
  add_test(NAME ${arg_NAME} COMMAND ${arg_NAME} --histories ${arg_HISTORIES})
endfunction()
