# Tests against peers nobody here wrote (OpenIPMI's ipmi_sim, ipmitool,
# FreeIPMI); each starts and always stops its peers.
foreach(t interop_ipmi_sim_test interop_bmcsim_keymodes_test)
  if(TEST ${t})
    set_tests_properties(${t} PROPERTIES LABELS interop)
  endif()
endforeach()
