# Helpers for the authors of bundles.
#
#   zo_add_bundle(<name> SOURCES <file>... [LIBRARIES <target>...])
#       the bundle library lib<name>.so
#   zo_add_service(<name> SOURCES <file>... [LIBRARIES <target>...])
#       a service library lib<name>.so
#
# Both go to ZO_PLUGIN_DIR if that is set, so that one directory on the loader's
# search path serves them all.
function(zo_add_bundle name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
    if(NOT arg_SOURCES)
        message(FATAL_ERROR "zo_add_bundle(${name}): SOURCES is missing")
    endif()
    add_library(${name} MODULE ${arg_SOURCES})
    if(ZO_OWN_CODE)
        zo_compile_options(${name})
    else()
        # What a bundle must have; warnings and the like are its author's business.
        target_compile_features(${name} PRIVATE cxx_std_17)
        set_target_properties(${name} PROPERTIES
            CXX_VISIBILITY_PRESET hidden
            VISIBILITY_INLINES_HIDDEN ON)
        target_compile_options(${name} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
    endif()
    target_link_libraries(${name} PRIVATE zo::bundlemgr ${arg_LIBRARIES})
    set_target_properties(${name} PROPERTIES PREFIX "lib" SUFFIX ".so")
    if(ZO_PLUGIN_DIR)
        set_target_properties(${name} PROPERTIES LIBRARY_OUTPUT_DIRECTORY "${ZO_PLUGIN_DIR}")
    endif()
endfunction()

function(zo_add_service name)
    zo_add_bundle(${name} ${ARGN})
endfunction()
