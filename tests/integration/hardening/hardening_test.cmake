# Reads the built FILES; needs READELF, too. FILES are separated by "|".
include("${CMAKE_CURRENT_LIST_DIR}/hardening.cmake")
string(REPLACE "|" ";" files "${FILES}")
foreach(file IN LISTS files)
    zo_expect_hardened("${file}")
endforeach()
