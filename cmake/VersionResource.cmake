# add_version_resource(<target> <description> <manifest template>)
# Gives a shipped executable its VERSIONINFO and its manifest, both stamped with the project
# version. project(... VERSION ...) is the one place the version is set; it also names the
# release ZIP.
set(VERSION_COMMAS "${PROJECT_VERSION_MAJOR},${PROJECT_VERSION_MINOR},${PROJECT_VERSION_PATCH},0")
set(VERSION_TEXT "${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}.${PROJECT_VERSION_PATCH}.0")

function(add_version_resource target description manifest_template)
  set(generated ${CMAKE_CURRENT_BINARY_DIR}/${target}-resources)
  set(manifest ${generated}/${target}.manifest)
  configure_file(${manifest_template} ${manifest} @ONLY)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/VersionInfo.rc.in ${generated}/${target}.rc @ONLY)
  target_sources(${target} PRIVATE ${generated}/${target}.rc)
  set_property(SOURCE ${generated}/${target}.rc APPEND PROPERTY OBJECT_DEPENDS ${manifest})
endfunction()
