# Run by CPack once the release files are staged (stripped), before the MSI and the ZIP are made:
# stages the installer's custom-action DLL beside them (it runs as SYSTEM: signed and listed like
# the programs, but built into the MSI, not the ZIP), signs the programs and the DLL when a key is
# configured (and says in one line when none is), then writes the bill of materials (SPDX 2.3)
# into the staged files, so that the ZIP holds it, and beside the packages (with the policy
# templates): this project at its version and commit, each program, the DLL and each policy
# template with its checksums, the runtime linked into the programs and the DLL, and the tools that
# built the packages, each at the version of the Debian package it came from.
include(${CMAKE_CURRENT_LIST_DIR}/ReleaseTools.cmake)

get_filename_component(actions_folder ${release_actions} DIRECTORY)
file(REMOVE_RECURSE ${actions_folder})
file(MAKE_DIRECTORY ${actions_folder})
file(COPY_FILE ${CPACK_MSI_ACTIONS} ${release_actions})
file(GLOB programs "${release_files}/*.exe" "${release_files}/*.dll")
list(APPEND programs ${release_actions})
if(CPACK_UPDATER_SIGNING)
  foreach(program IN LISTS programs)
    # The published DLL is the one in the published MSI's Binary table.
    release_sign(${program} Binary.OrreryActions)
  endforeach()
else()
  message(STATUS "The release is not signed: configure with UPDATER_SIGNING_CERT and "
                 "UPDATER_SIGNING_KEY, or UPDATER_SIGNING_PKCS12, to sign it")
endif()

set(name ${CPACK_PACKAGE_NAME})
set(version ${CPACK_PACKAGE_VERSION})
set(packages "")
set(relationships "")
set(identity "${CPACK_UPDATER_COMMIT}")
set(program_ids "")
macro(relate a kind b)
  string(APPEND relationships "    {\"spdxElementId\": \"${a}\", \"relationshipType\": \"${kind}\", "
                              "\"relatedSpdxElement\": \"${b}\"},\n")
endmacro()
# The policy templates (text files, in the staged folder policy/) are files of the release too.
file(GLOB_RECURSE templates LIST_DIRECTORIES false RELATIVE ${release_files} "${release_files}/policy/*")
list(SORT templates)

# One SPDX package for <component>, from the Debian package that holds <path>.
macro(add_component id component path)
  debian_package("${path}" found)
  if(found)
    list(GET found 0 deb)
    list(GET found 1 deb_version)
    list(GET found 2 deb_arch)
    string(CONCAT reference ", \"externalRefs\": [{\"referenceCategory\": \"PACKAGE-MANAGER\", "
                                "\"referenceType\": \"purl\", \"referenceLocator\": "
                                "\"pkg:deb/debian/${deb}@${deb_version}?arch=${deb_arch}\"}]")
    string(CONCAT entry "    {\"name\": \"${component}\", \"SPDXID\": \"${id}\", "
           "\"versionInfo\": \"${deb_version}\", \"supplier\": \"Organization: Debian\", "
           "\"downloadLocation\": \"NOASSERTION\", \"filesAnalyzed\": false, "
           "\"sourceInfo\": \"Debian package ${deb} ${deb_version} (${deb_arch})\""
           "${reference}},\n")
  else()
    string(CONCAT entry "    {\"name\": \"${component}\", \"SPDXID\": \"${id}\", "
           "\"versionInfo\": \"NOASSERTION\", \"downloadLocation\": \"NOASSERTION\", "
           "\"filesAnalyzed\": false, \"sourceInfo\": \"${path}\"},\n")
  endif()
  string(APPEND packages "${entry}")
endmacro()

set(files "")
relate(SPDXRef-DOCUMENT DESCRIBES SPDXRef-Package-${name})
foreach(program IN LISTS programs)
  get_filename_component(file_name ${program} NAME)
  string(MAKE_C_IDENTIFIER "${file_name}" file_id)
  string(REPLACE "_" "-" file_id "SPDXRef-File-${file_id}")
  file(SHA1 ${program} sha1)
  file(SHA256 ${program} sha256)
  string(APPEND identity ";${sha256}")
  set(comment "")
  if(program STREQUAL release_actions)
    string(CONCAT comment ", \"comment\": \"the installer's custom actions, run as SYSTEM: in the "
                          "MSI's Binary table (OrreryActions), never installed\"")
  endif()
  string(APPEND files "    {\"fileName\": \"./${file_name}\", \"SPDXID\": \"${file_id}\", "
                      "\"fileTypes\": [\"BINARY\"], \"checksums\": ["
                      "{\"algorithm\": \"SHA1\", \"checksumValue\": \"${sha1}\"}, "
                      "{\"algorithm\": \"SHA256\", \"checksumValue\": \"${sha256}\"}]"
                      "${comment}},\n")
  relate(SPDXRef-Package-${name} CONTAINS ${file_id})
  list(APPEND program_ids ${file_id})
endforeach()

foreach(template IN LISTS templates)
  string(MAKE_C_IDENTIFIER "${template}" file_id)
  string(REPLACE "_" "-" file_id "SPDXRef-File-${file_id}")
  file(SHA1 ${release_files}/${template} sha1)
  file(SHA256 ${release_files}/${template} sha256)
  string(APPEND identity ";${sha256}")
  string(APPEND files "    {\"fileName\": \"./${template}\", \"SPDXID\": \"${file_id}\", "
                      "\"fileTypes\": [\"TEXT\"], \"checksums\": ["
                      "{\"algorithm\": \"SHA1\", \"checksumValue\": \"${sha1}\"}, "
                      "{\"algorithm\": \"SHA256\", \"checksumValue\": \"${sha256}\"}]},\n")
  relate(SPDXRef-Package-${name} CONTAINS ${file_id})
  # Beside the packages as in the ZIP, for SHA256SUMS (cmake/ReleaseChecksums.cmake).
  get_filename_component(folder ${CPACK_PACKAGE_DIRECTORY}/${template} DIRECTORY)
  file(MAKE_DIRECTORY ${folder})
  file(COPY_FILE ${release_files}/${template} ${CPACK_PACKAGE_DIRECTORY}/${template})
endforeach()

# The runtime linked statically into every program, as the compiler finds it.
foreach(component IN ITEMS "MinGW-w64 CRT|crt2.o" "libstdc++|libstdc++.a" "libgcc|libgcc.a"
                           "winpthreads|libwinpthread.a")
  string(REPLACE "|" ";" component "${component}")
  list(GET component 0 component_name)
  list(GET component 1 library)
  execute_process(COMMAND ${CPACK_UPDATER_COMPILER} -print-file-name=${library}
                  OUTPUT_VARIABLE library_path OUTPUT_STRIP_TRAILING_WHITESPACE)
  string(MAKE_C_IDENTIFIER "${library}" id)
  string(REPLACE "_" "-" id "SPDXRef-Runtime-${id}")
  add_component(${id} "${component_name}" "${library_path}")
  foreach(program_id IN LISTS program_ids)
    relate(${program_id} STATIC_LINK ${id})
  endforeach()
endforeach()

# The tools that built the programs and the packages.
find_program(wixl wixl)
find_program(msibuild msibuild)
find_program(faketime faketime)
set(tools "${CPACK_UPDATER_COMPILER}" "${CPACK_UPDATER_LINKER}" ${wixl} ${msibuild} ${faketime}
          ${release_python})
if(CPACK_UPDATER_SIGNING)
  find_program(osslsigncode osslsigncode)
  list(APPEND tools ${osslsigncode})
endif()
foreach(tool IN LISTS tools)
  get_filename_component(tool_name ${tool} NAME)
  string(MAKE_C_IDENTIFIER "${tool_name}" id)
  string(REPLACE "_" "-" id "SPDXRef-Tool-${id}")
  add_component(${id} "${tool_name}" "${tool}")
  relate(${id} BUILD_TOOL_OF SPDXRef-Package-${name})
endforeach()

string(TIMESTAMP created "%Y-%m-%dT%H:%M:%SZ" UTC)
string(UUID document NAMESPACE 6BA7B811-9DAD-11D1-80B4-00C04FD430C8 NAME "${identity}" TYPE SHA1)
string(REGEX REPLACE ",\n$" "\n" packages "${packages}")
string(REGEX REPLACE ",\n$" "\n" files "${files}")
string(REGEX REPLACE ",\n$" "\n" relationships "${relationships}")
set(sbom "${name}-${version}.spdx.json")
file(WRITE ${release_files}/${sbom} "{
  \"spdxVersion\": \"SPDX-2.3\",
  \"dataLicense\": \"CC0-1.0\",
  \"SPDXID\": \"SPDXRef-DOCUMENT\",
  \"name\": \"${name}-${version}\",
  \"documentNamespace\": \"https://spdx.org/spdxdocs/${name}-${version}-${document}\",
  \"creationInfo\": {\"created\": \"${created}\", \"creators\": [\"Organization: ${CPACK_PACKAGE_VENDOR}\", \"Tool: CMake-${CMAKE_VERSION}\"]},
  \"packages\": [
    {\"name\": \"${name}\", \"SPDXID\": \"SPDXRef-Package-${name}\", \"versionInfo\": \"${version}\", \"supplier\": \"Organization: ${CPACK_PACKAGE_VENDOR}\", \"downloadLocation\": \"NOASSERTION\", \"filesAnalyzed\": false, \"sourceInfo\": \"built from commit ${CPACK_UPDATER_COMMIT}\"},
${packages}  ],
  \"files\": [
${files}  ],
  \"relationships\": [
${relationships}  ]
}
")
file(COPY_FILE ${release_files}/${sbom} ${CPACK_PACKAGE_DIRECTORY}/${sbom})
