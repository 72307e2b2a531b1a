# The settings installer's tests run the installer tool (copied beside the test executable under
# a name of their own) and install the sample settings file that the tools' build puts in bin/.
add_dependencies(cvset_tests cvupsettings cvupqnv_loc)
