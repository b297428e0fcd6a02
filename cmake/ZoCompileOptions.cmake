# zo_compile_options(<target>): how our own code is compiled.
#
# Hidden visibility and no STB_GNU_UNIQUE symbols: bundles and services are opened
# with RTLD_GLOBAL, where two definitions of one name would silently become one, and
# a unique symbol would keep its library mapped after dlclose.

# True in this project's directories only, not in those of a build that it is part of.
set(ZO_OWN_CODE ON)

if(ZO_SANITIZE)
    set(ZO_SANITIZE_FLAGS "-fsanitize=${ZO_SANITIZE}" "-fno-omit-frame-pointer")
    if(ZO_SANITIZE MATCHES "undefined")
        list(APPEND ZO_SANITIZE_FLAGS "-fno-sanitize-recover=undefined")
    endif()
endif()

function(zo_compile_options target)
    target_compile_features(${target} PUBLIC cxx_std_17)
    set_target_properties(${target} PROPERTIES
        CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wshadow -Wconversion
        $<$<BOOL:${ZO_WERROR}>:-Werror>
        $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>
        ${ZO_SANITIZE_FLAGS})
    target_link_options(${target} PRIVATE ${ZO_SANITIZE_FLAGS})
endfunction()
