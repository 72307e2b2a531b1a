# Run by CPack once the release files are staged (stripped) and before the ZIP is made: builds the
# MSI of the same files with wixl, beside the ZIP. CPACK_MSI_SOURCE names the .wxs, and
# CPACK_MSI_FILE_NAME the package,
# CPACK_MSI_ACTIONS the custom actions' DLL (built, never installed).
file(GLOB_RECURSE staged "${CPACK_TEMPORARY_DIRECTORY}/cvupdater.exe")
get_filename_component(files "${staged}" DIRECTORY)
# wixl takes the files' paths relative to where it runs.
file(RELATIVE_PATH actions "${files}" "${CPACK_MSI_ACTIONS}")
execute_process(COMMAND wixl -a x64 -D Version=${CPACK_PACKAGE_VERSION} -D Files=.
                        -D Actions=${actions}
                        -o ${CPACK_PACKAGE_DIRECTORY}/${CPACK_MSI_FILE_NAME} ${CPACK_MSI_SOURCE}
                WORKING_DIRECTORY ${files} RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "wixl could not build ${CPACK_MSI_FILE_NAME} (exit ${status})")
endif()
