# Builds the consumer next to this file and runs it. Needs VIA, LIBRARY_SOURCE, LIBRARY_BUILD,
# WORK_DIR, READELF and what consume.cmake needs; HARDENED tells whether the library is built
# so. As a subdirectory it is built as users run it, in a Release build.
include("${CMAKE_CURRENT_LIST_DIR}/consume.cmake")
include("${CMAKE_CURRENT_LIST_DIR}/../hardening/hardening.cmake")

file(REMOVE_RECURSE "${WORK_DIR}")
if(VIA STREQUAL "subdirectory")
    set(libraryDir "${WORK_DIR}/build/library/lib")
    consume(${VIA} "${WORK_DIR}" "${libraryDir}"
        "-DCONSUMER_LIBRARY_SOURCE=${LIBRARY_SOURCE}" -DCMAKE_BUILD_TYPE=Release)
    if(HARDENED)
        zo_expect_hardened("${libraryDir}/libzo_bundlemgr.so" FORTIFIED)
    endif()
else()
    install_library("${LIBRARY_BUILD}" "${WORK_DIR}/prefix" libraryDir)
    consume(${VIA} "${WORK_DIR}" "${libraryDir}" "-DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix")
endif()
