# Run by CPack once the ZIP is made, before it is copied beside the MSI: rewrites it so that it is
# the same bytes on every machine (cmake/reproducible-zip.py), then writes SHA256SUMS beside the
# packages, for the MSI, the ZIP, the bill of materials and the policy templates (policy/...), in
# the format `sha256sum -c` reads.
include(${CMAKE_CURRENT_LIST_DIR}/ReleaseTools.cmake)
set(packages ${CPACK_PACKAGE_DIRECTORY}/${CPACK_MSI_FILE_NAME}
             ${CPACK_PACKAGE_DIRECTORY}/${CPACK_PACKAGE_NAME}-${CPACK_PACKAGE_VERSION}.spdx.json)
foreach(zip IN LISTS CPACK_PACKAGE_FILES)
  release_run(${release_python} ${CMAKE_CURRENT_LIST_DIR}/reproducible-zip.py ${zip} ${release_epoch})
  list(APPEND packages ${zip})
endforeach()
set(sums "")
foreach(package IN LISTS packages)
  file(SHA256 ${package} sum)
  get_filename_component(name ${package} NAME)
  string(APPEND sums "${sum}  ${name}\n")
endforeach()
# The policy templates beside the packages (cmake/StageRelease.cmake put them there), by their
# path below that folder.
file(GLOB_RECURSE templates LIST_DIRECTORIES false RELATIVE ${CPACK_PACKAGE_DIRECTORY}
     "${CPACK_PACKAGE_DIRECTORY}/policy/*")
list(SORT templates)
foreach(template IN LISTS templates)
  file(SHA256 ${CPACK_PACKAGE_DIRECTORY}/${template} sum)
  string(APPEND sums "${sum}  ${template}\n")
endforeach()
file(WRITE ${CPACK_PACKAGE_DIRECTORY}/SHA256SUMS "${sums}")
