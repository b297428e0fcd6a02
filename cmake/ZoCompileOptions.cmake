# zo_compile_options(<target>): how our own code is compiled.
#
# Hidden visibility and no STB_GNU_UNIQUE symbols: bundles and services are opened
# with RTLD_GLOBAL, where two definitions of one name would silently become one, and
# a unique symbol would keep its library mapped after dlclose.

include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CMakePushCheckState)

# True in this project's directories only, not in those of a build that it is part of.
set(ZO_OWN_CODE ON)

if(ZO_SANITIZE)
    set(ZO_SANITIZE_FLAGS "-fsanitize=${ZO_SANITIZE}" "-fno-omit-frame-pointer")
    if(ZO_SANITIZE MATCHES "undefined")
        list(APPEND ZO_SANITIZE_FLAGS "-fno-sanitize-recover=undefined")
    endif()
endif()

# zo_harden(<target>): what makes a fault in the target harder to exploit. Costs next to
# nothing, so it is on in every build; fortified calls need an optimising compiler, and
# sanitizers check what they check and more.
option(ZO_HARDEN "Harden the library and the programs" ON)
set(ZO_HARDEN_FLAGS "")
set(ZO_FORTIFY_FLAGS "")
if(ZO_HARDEN)
    cmake_push_check_state(RESET)
    set(CMAKE_REQUIRED_FLAGS "-Werror")  # clang only warns of flags for other machines
    foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection -mbranch-protection=standard)
        string(MAKE_C_IDENTIFIER "ZO_HAVE${flag}" known)
        check_cxx_compiler_flag(${flag} ${known})
        if(${known})
            list(APPEND ZO_HARDEN_FLAGS ${flag})
        endif()
    endforeach()
    cmake_pop_check_state()
    # Left alone where the compiler, or who calls it, does so already.
    cmake_push_check_state(RESET)
    set(CMAKE_REQUIRED_FLAGS "-O2")
    check_cxx_source_compiles("
        #ifndef _FORTIFY_SOURCE
        #error
        #endif
        int main() {}"
        ZO_FORTIFIED_ALREADY)
    cmake_pop_check_state()
    if(NOT ZO_FORTIFIED_ALREADY AND NOT ZO_SANITIZE)
        set(ZO_FORTIFY_FLAGS "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-D_FORTIFY_SOURCE=2>")
    endif()
endif()

function(zo_harden target)
    if(NOT ZO_HARDEN)
        return()
    endif()
    target_compile_options(${target} PRIVATE ${ZO_HARDEN_FLAGS} ${ZO_FORTIFY_FLAGS})
    get_target_property(type ${target} TYPE)
    target_link_options(${target} PRIVATE
        LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack
        $<$<STREQUAL:${type},EXECUTABLE>:-pie>)
endfunction()

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
    zo_harden(${target})
endfunction()
