# What the release's CPack scripts share (cmake/Release.cmake sets the CPACK_UPDATER_ variables):
#   release_files   the folder of the staged, stripped release files
#   release_actions the installer's custom-action DLL as the release takes it (staged beside
#                   release_files, not in the ZIP: it is built into the MSI, never installed)
#   release_epoch   SOURCE_DATE_EPOCH, the time every release file carries
#   release_python  Debian's python3 where there is one (its zlib compresses the ZIP)
#   release_run(<command>...)        runs a command, failing the packaging with its output
#   release_sign(<file> [<stream>])  signs a program, the DLL or the MSI in place (when
#                                    CPACK_UPDATER_SIGNING); <stream>: where the published MSI holds
#                                    a file that is not in the published folder itself
#   debian_package(<path> <var>)     "<package>;<version>;<arch>" of the Debian package holding
#                                    <path>, or empty where dpkg knows no such file
cmake_policy(VERSION 3.25)
file(GLOB_RECURSE staged "${CPACK_TEMPORARY_DIRECTORY}/cvupdater.exe")
get_filename_component(release_files "${staged}" DIRECTORY)
get_filename_component(release_actions "${release_files}/../msi-binary/orreryactions.dll" ABSOLUTE)
set(release_epoch ${CPACK_UPDATER_EPOCH})
find_program(release_python python3 HINTS /usr/bin)

function(release_run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command} failed (${status}):\n${output}")
  endif()
endfunction()

# SHA-256, the release's time as the signing time (so that a signed build is reproducible too), and
# the time-stamping service when one is configured; or the signature of the same file in the
# published release that CPACK_UPDATER_SIGNATURES_FROM names (a file there, or the stream <stream>
# of the published MSI).
function(release_sign file)
  file(REMOVE ${file}.signed ${file}.signature ${file}.published) # Left by a failed run.
  if(CPACK_UPDATER_SIGNATURES_FROM)
    get_filename_component(name ${file} NAME)
    file(GLOB_RECURSE published "${CPACK_UPDATER_SIGNATURES_FROM}/${name}")
    file(GLOB_RECURSE published_msi "${CPACK_UPDATER_SIGNATURES_FROM}/*.msi")
    if(NOT published AND ARGC GREATER 1 AND published_msi)
      list(GET published_msi 0 published_msi)
      execute_process(COMMAND msiinfo extract ${published_msi} ${ARGV1}
                      OUTPUT_FILE ${file}.published RESULT_VARIABLE status)
      if(status EQUAL 0)
        set(published ${file}.published)
      endif()
    endif()
    if(NOT published)
      message(FATAL_ERROR "No ${name} in ${CPACK_UPDATER_SIGNATURES_FROM}")
    endif()
    list(GET published 0 published)
    release_run(osslsigncode extract-signature -in ${published} -out ${file}.signature)
    release_run(osslsigncode attach-signature ${CPACK_UPDATER_SIGNATURES_CA} -sigin ${file}.signature
                -in ${file} -out ${file}.signed)
    file(REMOVE ${file}.signature ${file}.published)
  else()
    release_run(osslsigncode sign ${CPACK_UPDATER_SIGNING} -h sha256 -n "Orrery Updater"
                -time ${release_epoch} -in ${file} -out ${file}.signed)
  endif()
  file(RENAME ${file}.signed ${file})
endfunction()

function(debian_package path var)
  set(${var} "" PARENT_SCOPE)
  file(REAL_PATH "${path}" path)
  execute_process(COMMAND dpkg-query -S ${path} OUTPUT_VARIABLE owner RESULT_VARIABLE status ERROR_QUIET)
  if(status EQUAL 0 AND owner MATCHES "^([^:, ]+)")
    set(package ${CMAKE_MATCH_1})
    execute_process(COMMAND dpkg-query -W -f=\${Version}\;\${Architecture} ${package}
                    OUTPUT_VARIABLE version RESULT_VARIABLE status ERROR_QUIET)
    if(status EQUAL 0)
      set(${var} "${package};${version}" PARENT_SCOPE)
    endif()
  endif()
endfunction()
