# The simulator's own tests carry a label of their own: ctest -L bmcsim.
file(GLOB BMCSIM_TESTS CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/bmcsim_*_test.cpp)
foreach(src ${BMCSIM_TESTS})
  get_filename_component(name ${src} NAME_WE)
  set_tests_properties(${name} PROPERTIES LABELS "unit;bmcsim")
endforeach()
