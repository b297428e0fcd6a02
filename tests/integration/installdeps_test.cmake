# What scripts/install-deps.sh installs on a system that lacks it: its PATH holds no more than
# the tools that the script itself needs, and an apt-get that only notes what it is asked for.
# Needs SCRIPT and WORK_DIR.
cmake_minimum_required(VERSION 3.22)

set(bin "${WORK_DIR}/bin")
set(calls "${WORK_DIR}/calls")
file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${bin}")
foreach(tool sh env dpkg-query)
    find_program(path_${tool} ${tool} REQUIRED)
    file(CREATE_LINK "${path_${tool}}" "${bin}/${tool}" SYMBOLIC)
endforeach()
file(WRITE "${bin}/apt-get" "#!${path_sh}\necho \"$*\" >>'${calls}'\n")
file(WRITE "${bin}/id" "#!${path_sh}\necho 0\n")
file(CHMOD "${bin}/apt-get" "${bin}/id" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)

# expect_installed(<group> <package>...)
function(expect_installed group)
    file(REMOVE "${calls}")
    execute_process(COMMAND "${CMAKE_COMMAND}" -E env --unset=ZO_SKIP_DEPS "PATH=${bin}" "${path_sh}" "${SCRIPT}" ${group}
        RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "${SCRIPT} ${group} failed (${status}): ${output}")
    endif()
    file(STRINGS "${calls}" install REGEX "^install ")
    foreach(package IN LISTS ARGN)
        if(NOT " ${install} " MATCHES " ${package} ")
            message(FATAL_ERROR "${SCRIPT} ${group} leaves ${package} out: ${install}")
        endif()
    endforeach()
endfunction()

expect_installed(package dpkg-dev file)
expect_installed(build "g\\+\\+" cmake)
