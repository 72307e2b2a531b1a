# Read by cpack before it stages the release files: strip, which rewrites the PE header, then
# stamps it with SOURCE_DATE_EPOCH as the linker did, not with the time of packing.
set(ENV{SOURCE_DATE_EPOCH} ${CPACK_UPDATER_EPOCH})
