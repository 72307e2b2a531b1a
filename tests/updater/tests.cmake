# The update-run tests load the stand-in library as "cvct" + "wupd.DLL" and the stand-in spooler.
add_dependencies(cvctl_tests standin_webupdater standin_winspool)
add_custom_command(TARGET cvctl_tests POST_BUILD
  COMMAND ${CMAKE_COMMAND} -E copy_if_different
          $<TARGET_FILE:standin_webupdater> $<TARGET_FILE_DIR:cvctl_tests>/cvctwupd.DLL)
set_property(TEST cvctl_tests APPEND PROPERTY ENVIRONMENT "${STANDIN_SPOOLER}")
