# Few histories here, for a second: ./check plays more.
mox_add_simulation(InvArad)
target_link_libraries(attrlog_tests PRIVATE InvArad::MoxSimulation)
