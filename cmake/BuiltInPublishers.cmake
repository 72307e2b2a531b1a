# The trusted publishers built into a program (settings/TrustedPublishers::builtInList()): SHA-256
# hashes of the publishers' public keys, separated by ';'. The release takes the cache option
# UPDATER_TRUSTED_PUBLISHERS (empty by default: no publisher is pinned by the build);
# add_builtin_publishers(<target> <hashes>) makes an object library of one generated source, which
# every executable that links updater_core takes in with $<TARGET_OBJECTS:...>, so that a test
# program can be built with a list of its own.
set(UPDATER_TRUSTED_PUBLISHERS "" CACHE STRING
    "SHA-256 hashes of trusted publishers' public keys (64 hexadecimal characters each), separated by ';'")

function(add_builtin_publishers target hashes)
  set(checked "")
  foreach(hash IN LISTS hashes)
    string(STRIP "${hash}" hash)
    string(LENGTH "${hash}" length)
    if(hash STREQUAL "")
      continue()
    elseif(NOT length EQUAL 64 OR NOT hash MATCHES "^[0-9A-Fa-f]+$")
      message(FATAL_ERROR "Trusted publishers: '${hash}' is not a SHA-256 hash (64 hexadecimal "
                          "characters)")
    endif()
    string(TOLOWER "${hash}" hash)
    list(APPEND checked "${hash}")
  endforeach()
  set(BUILT_IN_PUBLISHERS "${checked}")
  set(source ${CMAKE_CURRENT_BINARY_DIR}/generated/${target}.cpp)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/BuiltInPublishers.cpp.in ${source} @ONLY)
  add_library(${target} OBJECT ${source})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src)
endfunction()
