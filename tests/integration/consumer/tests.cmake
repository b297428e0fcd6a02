# The library as others use it: installed, and as a part of their build. The sanitizers'
# builds leave it out, since it is about files and settings.
function(zo_add_consumer_test via)
    add_test(NAME "consumer/${via}"
        COMMAND "${CMAKE_COMMAND}"
            -D "VIA=${via}"
            -D "SOURCE_DIR=${CMAKE_CURRENT_SOURCE_DIR}/consumer"
            -D "LIBRARY_SOURCE=${PROJECT_SOURCE_DIR}"
            -D "LIBRARY_BUILD=${PROJECT_BINARY_DIR}"
            -D "WORK_DIR=${CMAKE_CURRENT_BINARY_DIR}/consumer/${via}"
            -D "GENERATOR=${CMAKE_GENERATOR}"
            -D "CXX_COMPILER=${CMAKE_CXX_COMPILER}"
            -D "READELF=${CMAKE_READELF}"
            -D "HARDENED=${ZO_HARDEN}"
            -P "${CMAKE_CURRENT_SOURCE_DIR}/consumer/consumer_test.cmake")
    # Installing writes its manifest into the one build directory. Slow, so started first.
    set_tests_properties("consumer/${via}" PROPERTIES TIMEOUT 600 RESOURCE_LOCK install COST 100)
endfunction()

function(zo_add_libiconv_test vias)
    add_test(NAME consumer/libiconv
        COMMAND "${CMAKE_COMMAND}"
            -D "VIAS=${vias}"
            -D "SOURCE_DIR=${CMAKE_CURRENT_SOURCE_DIR}/consumer"
            -D "LIBRARY_SOURCE=${PROJECT_SOURCE_DIR}"
            -D "GENERATED_DIR=${PROJECT_BINARY_DIR}/generated"
            -D "WORK_DIR=${CMAKE_CURRENT_BINARY_DIR}/consumer/libiconv"
            -D "GENERATOR=${CMAKE_GENERATOR}"
            -D "CXX_COMPILER=${CMAKE_CXX_COMPILER}"
            -D "READELF=${CMAKE_READELF}"
            -D "PKG_CONFIG=${PKG_CONFIG_EXECUTABLE}"
            -P "${CMAKE_CURRENT_SOURCE_DIR}/consumer/libiconv_test.cmake")
    # Slow, so started first.
    set_tests_properties(consumer/libiconv PROPERTIES TIMEOUT 900 COST 100)
endfunction()

if(ZO_INSTALL AND NOT ZO_SANITIZE)
    zo_add_consumer_test(package)
    zo_add_consumer_test(subdirectory)
    set(vias package)
    find_package(PkgConfig)
    if(PkgConfig_FOUND)
        zo_add_consumer_test(pkgconfig)
        string(APPEND vias "|pkgconfig")
    endif()
    if(TARGET zo_gbk_table)  # where the library uses its stand-in, which serves as a libiconv here
        zo_add_libiconv_test("${vias}")
    endif()
endif()
