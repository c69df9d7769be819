# One program over each version of a schema: what they have in common must stay in step. The older
# version is built for the registry's tests.
mox_add_model(GreenhouseNext SCHEMA upgrade/greenhouse_next.mox)
# Both have the value class of the example.
target_include_directories(GreenhouseNext PUBLIC ${PROJECT_SOURCE_DIR}/examples/greenhouse)
foreach(version Greenhouse GreenhouseNext)
  add_executable(upgrade_${version} upgrade/peer.cc)
  target_link_libraries(upgrade_${version} PRIVATE ${version})
endforeach()
target_compile_definitions(upgrade_GreenhouseNext PRIVATE IS_NEXT)
