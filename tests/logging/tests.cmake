# The second log writer of the multi-process tests. Its name starts with "cvlo" so that it shares
# cvlog_tests.exe's local id, settings store, log file and log mutex.
add_executable(cvlo_writer ${CMAKE_CURRENT_LIST_DIR}/writer/LogWriterHelper.cpp)
target_link_libraries(cvlo_writer PRIVATE updater_core)
add_dependencies(cvlog_tests cvlo_writer)
