# The printer tests stage printers through the stand-in spooler beside the test exe.
add_dependencies(cvprn_tests standin_winspool)
set_property(TEST cvprn_tests APPEND PROPERTY ENVIRONMENT "${STANDIN_SPOOLER}")
