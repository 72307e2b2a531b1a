# The web-updater tests load the stand-in library under this test exe's library name
# ("cvwe" + "wupd.DLL"), from the exe's directory.
add_dependencies(cvweb_tests standin_webupdater standin_webupdater_noexports)
add_custom_command(TARGET cvweb_tests POST_BUILD
  COMMAND ${CMAKE_COMMAND} -E copy_if_different
          $<TARGET_FILE:standin_webupdater> $<TARGET_FILE_DIR:cvweb_tests>/cvwewupd.DLL)

# The language and country codes under real Wine locales: LC_ALL decides both LANGIDs.
foreach(locale_case "fr_CA.UTF-8:1:00000C0C" "de_DE.UTF-8:2:00000407" "es_ES.UTF-8:28:00000C0A"
                    "ja_JP.UTF-8:12:00000411" "de_CH.UTF-8:2:00000807")
  string(REPLACE ":" ";" fields ${locale_case})
  list(GET fields 0 locale)
  list(GET fields 1 language)
  list(GET fields 2 country)
  add_test(NAME codes_${locale} COMMAND test_helper codes WORKING_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  set_tests_properties(codes_${locale} PROPERTIES
    FIXTURES_REQUIRED wine_prefix
    TIMEOUT 60
    ENVIRONMENT "WINEPREFIX=${TEST_WINEPREFIX};WINEDEBUG=-all;LC_ALL=${locale}"
    PASS_REGULAR_EXPRESSION "language=${language}\r?\ncountry=${country}\r?\n")
endforeach()
