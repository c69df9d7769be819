# A second module in the process, of a schema that knows nothing of the chip inventory; and the
# program that asks for one type before anything of the model has run.
mox_add_model(Greenhouse SCHEMA ${PROJECT_SOURCE_DIR}/examples/greenhouse/greenhouse.mox)
target_link_libraries(registry_tests PRIVATE Greenhouse)

add_executable(first_asked registry/first_asked.cc)
target_link_libraries(first_asked PRIVATE InvArad::InvArad)
add_dependencies(registry_tests first_asked)
target_compile_definitions(registry_tests PRIVATE FIRST_ASKED="$<JOIN:${CMAKE_CROSSCOMPILING_EMULATOR}, > $<TARGET_FILE:first_asked>")
