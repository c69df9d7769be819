add_executable(platforms_wire platforms/wire.cc)
target_include_directories(platforms_wire PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(platforms_wire PRIVATE InvArad::InvArad InvArad::MoxSimulation)
