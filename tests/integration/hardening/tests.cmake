# Whether what users get was built hardened, as it lies in the build directory. What an
# optimising build has beyond that, the consumer's tests look at.
function(zo_built_files result directory)
    set(files "")
    get_property(targets DIRECTORY "${directory}" PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS targets)
        get_target_property(type ${target} TYPE)
        if(type MATCHES "^(SHARED_LIBRARY|MODULE_LIBRARY|EXECUTABLE)$")
            list(APPEND files "$<TARGET_FILE:${target}>")
        endif()
    endforeach()
    get_property(subdirectories DIRECTORY "${directory}" PROPERTY SUBDIRECTORIES)
    foreach(subdirectory IN LISTS subdirectories)
        zo_built_files(more "${subdirectory}")
        list(APPEND files ${more})
    endforeach()
    set(${result} "${files}" PARENT_SCOPE)
endfunction()

if(ZO_HARDEN AND NOT ZO_SANITIZE)
    set(files "$<TARGET_FILE:zo_bundlemgr>")
    get_property(directories DIRECTORY "${PROJECT_SOURCE_DIR}" PROPERTY SUBDIRECTORIES)
    list(FILTER directories INCLUDE REGEX "/(examples|tools)$")
    foreach(directory IN LISTS directories)
        zo_built_files(more "${directory}")
        list(APPEND files ${more})
    endforeach()
    list(JOIN files "|" files)
    add_test(NAME hardening/built_files
        COMMAND "${CMAKE_COMMAND}"
            -D "READELF=${CMAKE_READELF}"
            -D "FILES=${files}"
            -P "${CMAKE_CURRENT_SOURCE_DIR}/hardening/hardening_test.cmake")
endif()
