# Run by CPack after cmake/StageRelease.cmake, before the ZIP is made: builds the MSI of the staged
# files with wixl, beside the ZIP, and signs it when a key is configured. CPACK_MSI_SOURCE names the
# .wxs, CPACK_MSI_FILE_NAME the package; the custom actions' DLL (built into it, never installed) is
# the one cmake/StageRelease.cmake staged and signed.
#
# Two builds of one commit give the same bytes: the cabinet keeps the files' times and wixl stamps
# the summary with the clock (in local time), so the files get the release's time and wixl runs
# under faketime in UTC; wixl's random codes are replaced. The ProductCode follows the UpgradeCode
# and the version (one product per version, a new version a new product, as a major upgrade
# needs) and goes to wixl, since a value changed afterwards would stay behind in the string pool;
# the package code follows the package's content. File.Version and File.Language of each program
# come from its version resource, so that Windows Installer's file-versioning rules replace it on
# an upgrade.
include(${CMAKE_CURRENT_LIST_DIR}/ReleaseTools.cmake)
set(msi ${CPACK_PACKAGE_DIRECTORY}/${CPACK_MSI_FILE_NAME})
file(GLOB payload "${release_files}/*")
release_run(touch -h -d @${release_epoch} ${payload})
# The clock stopped at the release's time (SOURCE_DATE_EPOCH, cmake/ReleaseEnvironment.cmake);
# faketime's "@" form would start it running there.
string(TIMESTAMP release_time "%Y-%m-%d %H:%M:%S" UTC)
set(frozen ${CMAKE_COMMAND} -E env TZ=UTC faketime -f ${release_time})
file(READ ${CPACK_MSI_SOURCE} wxs)
string(REGEX MATCH "UpgradeCode=\"([0-9A-Fa-f-]+)\"" found "${wxs}")
string(UUID product NAMESPACE ${CMAKE_MATCH_1} NAME ${CPACK_PACKAGE_VERSION} TYPE SHA1 UPPER)
# wixl takes the files' paths relative to where it runs.
file(RELATIVE_PATH actions "${release_files}" "${release_actions}")
execute_process(COMMAND ${frozen} wixl -a x64 -D Version=${CPACK_PACKAGE_VERSION} -D Files=.
                        -D Actions=${actions}
                        -D ProductCode={${product}} -o ${msi} ${CPACK_MSI_SOURCE}
                WORKING_DIRECTORY ${release_files} RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "wixl could not build ${CPACK_MSI_FILE_NAME} (exit ${status})")
endif()

# The version resource's fixed part (after its signature 0xFEEF04BD) holds the file version; the
# Translation value its language.
function(version_resource program version_var language_var)
  file(READ ${program} hex HEX)
  string(FIND "${hex}" "bd04effe" at)
  string(FIND "${hex}" "5400720061006e0073006c006100740069006f006e000000" translation)
  math(EXPR odd "(${at} | ${translation}) % 2")
  if(at LESS 0 OR translation LESS 0 OR odd)
    return()
  endif()
  set(version "")
  foreach(offset 20 16 28 24) # dwFileVersionMS, then LS: each a pair of little-endian WORDs.
    math(EXPR offset "${at} + ${offset}")
    string(SUBSTRING "${hex}" ${offset} 4 word)
    string(REGEX REPLACE "(..)(..)" "\\2\\1" word "${word}")
    math(EXPR word "0x${word}")
    list(APPEND version ${word})
  endforeach()
  list(JOIN version "." version)
  math(EXPR translation "${translation} + 52") # Key, terminator and padding to a DWORD.
  string(SUBSTRING "${hex}" ${translation} 4 language)
  string(REGEX REPLACE "(..)(..)" "\\2\\1" language "${language}")
  math(EXPR language "0x${language}")
  set(${version_var} ${version} PARENT_SCOPE)
  set(${language_var} ${language} PARENT_SCOPE)
endfunction()

set(queries "")
execute_process(COMMAND msiinfo export ${msi} File OUTPUT_VARIABLE rows)
string(REPLACE "\n" ";" rows "${rows}")
foreach(row IN LISTS rows)
  string(REPLACE "\t" ";" row "${row}")
  list(LENGTH row columns)
  if(columns LESS 3)
    continue()
  endif()
  list(GET row 0 key)
  list(GET row 2 file_name)
  string(REGEX REPLACE ".*\\|" "" file_name "${file_name}")
  if(file_name MATCHES "\\.(exe|dll)$" AND EXISTS ${release_files}/${file_name})
    version_resource(${release_files}/${file_name} version language)
    if(version)
      list(APPEND queries -q "UPDATE `File` SET `Version`='${version}', `Language`='${language}' WHERE `File`='${key}'"
                          -q "DELETE FROM `MsiFileHash` WHERE `File_`='${key}'")
    endif()
  endif()
endforeach()
release_run(${frozen} msibuild ${msi} ${queries})

# The package code: a name-based UUID of the package with a fixed one in its place.
execute_process(COMMAND msiinfo suminfo ${msi} OUTPUT_VARIABLE summary)
foreach(field Subject Author Template)
  string(REGEX MATCH "\n${field}: ([^\n]*)" found "${summary}")
  set(${field} "${CMAKE_MATCH_1}")
endforeach()
set(package_code ${product}) # The fixed one, first.
foreach(pass placeholder derived)
  execute_process(COMMAND ${frozen} msibuild ${msi} -s "${Subject}" "${Author}" "${Template}"
                          "{${package_code}}" RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "msibuild could not set the package code of ${CPACK_MSI_FILE_NAME}")
  endif()
  file(SHA256 ${msi} content)
  string(UUID package_code NAMESPACE ${product} NAME ${content} TYPE SHA1 UPPER)
endforeach()

if(CPACK_UPDATER_SIGNING)
  release_sign(${msi})
endif()
