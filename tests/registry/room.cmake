# Further modules: of a schema that knows nothing of the chip inventory; of types that own each other,
# loaded and closed while the tests run; and the program that asks for one type before anything of
# the model has run.
mox_add_model(Greenhouse SCHEMA ${PROJECT_SOURCE_DIR}/examples/greenhouse/greenhouse.mox
              HEADERS Greenhouse/Humidity.h)
target_link_libraries(registry_tests PRIVATE Greenhouse)
mox_add_model(Circle SCHEMA registry/circle.mox)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  target_compile_options(Circle PRIVATE -fno-gnu-unique)  # Unique symbols would keep it loaded.
endif()

add_executable(first_asked registry/first_asked.cc)
target_link_libraries(first_asked PRIVATE InvArad::InvArad)
add_dependencies(registry_tests first_asked Circle)
target_compile_definitions(
  registry_tests PRIVATE CIRCLE="$<TARGET_FILE:Circle>"
                         FIRST_ASKED="$<JOIN:${CMAKE_CROSSCOMPILING_EMULATOR}, > $<TARGET_FILE:first_asked>")
