# The release's reproducibility and signing, set up at configure time, before the targets, for the
# linker and the CPack scripts (cmake/StageRelease.cmake, cmake/BuildMsi.cmake,
# cmake/ReleaseChecksums.cmake).
#
# Every time a release file carries (the programs' PE time stamps, the MSI's summary and cabinet,
# the ZIP's entries, the signatures) is SOURCE_DATE_EPOCH: the environment's at configure time, or
# else the time of the checkout's last commit. A new commit configures again, so that it stamps
# the next build.
find_package(Git QUIET)
set(RELEASE_COMMIT unknown)
if(GIT_FOUND)
  execute_process(COMMAND ${GIT_EXECUTABLE} log -1 --format=%ct%n%H
                  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE commit
                  OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE status ERROR_QUIET)
  if(status EQUAL 0 AND commit MATCHES "^([0-9]+)\n([0-9a-f]+)$")
    set(commit_time ${CMAKE_MATCH_1})
    set(RELEASE_COMMIT ${CMAKE_MATCH_2})
    execute_process(COMMAND ${GIT_EXECUTABLE} rev-parse --git-path logs/HEAD
                    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE head_log
                    OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    get_filename_component(head_log "${head_log}" ABSOLUTE BASE_DIR ${PROJECT_SOURCE_DIR})
    if(EXISTS "${head_log}")
      set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${head_log}")
    endif()
  endif()
endif()
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  set(SOURCE_DATE_EPOCH $ENV{SOURCE_DATE_EPOCH})
elseif(DEFINED commit_time)
  set(SOURCE_DATE_EPOCH ${commit_time})
else()
  # No commit to take it from: the ZIP format's earliest time, so that the build stays the same.
  set(SOURCE_DATE_EPOCH 315532800)
  message(WARNING "No git commit and no SOURCE_DATE_EPOCH: the release is stamped 1980-01-01")
endif()

# binutils takes the PE time stamp from SOURCE_DATE_EPOCH: every program and DLL linked after this
# (included before the targets are made) carries it.
set(CMAKE_C_LINKER_LAUNCHER ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH})
set(CMAKE_CXX_LINKER_LAUNCHER ${CMAKE_C_LINKER_LAUNCHER})

# Signing: a certificate (PEM, with its chain) and its key (PEM), or a PKCS#12 file and a file
# holding its password. The files are read where they are, by osslsigncode; nothing of them is
# copied into the build tree or the packages.
set(UPDATER_SIGNING_CERT "" CACHE FILEPATH "Code-signing certificate (PEM) for the release")
set(UPDATER_SIGNING_KEY "" CACHE FILEPATH "The signing certificate's private key (PEM)")
set(UPDATER_SIGNING_PKCS12 "" CACHE FILEPATH "Or: certificate and key in one PKCS#12 file")
set(UPDATER_SIGNING_PASSWORD_FILE "" CACHE FILEPATH "The file holding the PKCS#12 file's password")
set(UPDATER_TIMESTAMP_URL "" CACHE STRING "RFC 3161 time-stamping service for the signatures")
if(UPDATER_SIGNING_CERT OR UPDATER_SIGNING_KEY)
  if(NOT EXISTS "${UPDATER_SIGNING_CERT}" OR NOT EXISTS "${UPDATER_SIGNING_KEY}")
    message(FATAL_ERROR "UPDATER_SIGNING_CERT and UPDATER_SIGNING_KEY must both name files")
  endif()
  set(CPACK_UPDATER_SIGNING -certs ${UPDATER_SIGNING_CERT} -key ${UPDATER_SIGNING_KEY})
elseif(UPDATER_SIGNING_PKCS12)
  if(NOT EXISTS "${UPDATER_SIGNING_PKCS12}" OR NOT EXISTS "${UPDATER_SIGNING_PASSWORD_FILE}")
    message(FATAL_ERROR "UPDATER_SIGNING_PKCS12 and UPDATER_SIGNING_PASSWORD_FILE must both name files")
  endif()
  set(CPACK_UPDATER_SIGNING -pkcs12 ${UPDATER_SIGNING_PKCS12} -readpass ${UPDATER_SIGNING_PASSWORD_FILE})
endif()
# A rebuild that checks a published signed release takes its signatures instead of a key: a folder
# with the published MSI and the published ZIP unpacked. osslsigncode attaches each signature only
# to a file whose contents it signed, with a certificate that chains to the system's CAs or to
# UPDATER_SIGNATURES_CA, so the rebuild is then the published bytes, or fails.
set(UPDATER_SIGNATURES_FROM "" CACHE PATH "A published release whose signatures a rebuild takes")
set(UPDATER_SIGNATURES_CA "" CACHE FILEPATH "The CA (PEM) of the published release's certificate")
set(CPACK_UPDATER_SIGNATURES_FROM ${UPDATER_SIGNATURES_FROM})
if(UPDATER_SIGNATURES_CA)
  set(CPACK_UPDATER_SIGNATURES_CA -CAfile ${UPDATER_SIGNATURES_CA})
endif()
if(UPDATER_SIGNATURES_FROM)
  set(CPACK_UPDATER_SIGNING attach)
endif()
if(CPACK_UPDATER_SIGNING AND UPDATER_TIMESTAMP_URL)
  list(APPEND CPACK_UPDATER_SIGNING -ts ${UPDATER_TIMESTAMP_URL})
endif()

set(CPACK_UPDATER_EPOCH ${SOURCE_DATE_EPOCH})
set(CPACK_UPDATER_COMMIT ${RELEASE_COMMIT})
set(CPACK_UPDATER_COMPILER ${CMAKE_CXX_COMPILER})
set(CPACK_UPDATER_LINKER ${CMAKE_LINKER})
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/ReleaseEnvironment.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/StageRelease.cmake
                            ${PROJECT_SOURCE_DIR}/cmake/BuildMsi.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/ReleaseChecksums.cmake)
