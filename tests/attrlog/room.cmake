# Few histories here, for some seconds: ./check plays more.
mox_add_simulation(InvArad)
