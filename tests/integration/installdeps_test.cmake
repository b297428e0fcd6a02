# What scripts/install-deps.sh installs on a system that lacks it: its PATH holds no more than
# the tools that the script itself needs, a dpkg-query that knows of no package, and an apt-get
# that only notes what it is asked for.
# Needs SCRIPT and WORK_DIR.
cmake_minimum_required(VERSION 3.22)

set(bin "${WORK_DIR}/bin")
set(calls "${WORK_DIR}/calls")
file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${bin}")
foreach(tool sh env)
    find_program(path_${tool} ${tool} REQUIRED)
    file(CREATE_LINK "${path_${tool}}" "${bin}/${tool}" SYMBOLIC)
endforeach()
file(WRITE "${bin}/apt-get" "#!${path_sh}\necho \"$*\" >>'${calls}'\n")
file(WRITE "${bin}/id" "#!${path_sh}\necho 0\n")
file(WRITE "${bin}/dpkg-query" "#!${path_sh}\nexit 1\n")
file(CHMOD "${bin}/apt-get" "${bin}/id" "${bin}/dpkg-query" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)

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
expect_installed(build "g\\+\\+" cmake libace-dev libjsoncpp-dev libcli11-dev)
expect_installed(check clang clang-format clang-tidy abigail-tools)

# While the CORBA servers are installed, the script has a policy for services of its own in
# place of the system's. Here it finds both in a directory of this test.
set(policy "${WORK_DIR}/policy-rc.d")
file(READ "${SCRIPT}" text)
string(REPLACE "policy=/usr/sbin/policy-rc.d" "policy=${policy}" moved "${text}")
if(moved STREQUAL text)
    message(FATAL_ERROR "${SCRIPT} does not say where the system's policy for services is")
endif()
set(SCRIPT "${WORK_DIR}/install-deps.sh")
file(WRITE "${SCRIPT}" "${moved}")
foreach(tool mv rm tee chmod cp grep sed sort)
    find_program(path_${tool} ${tool} REQUIRED)
    file(CREATE_LINK "${path_${tool}}" "${bin}/${tool}" SYMBOLIC)
endforeach()
foreach(tool dpkg systemctl)
    file(WRITE "${bin}/${tool}" "#!${path_sh}\n")
endforeach()
# What is in place while packages are installed is what a script that is killed then leaves.
file(WRITE "${bin}/apt-get" "#!${path_sh}\necho \"$*\" >>'${calls}'\ncp '${policy}' '${WORK_DIR}/left' 2>/dev/null || :\n")
file(CHMOD "${bin}/apt-get" "${bin}/dpkg" "${bin}/systemctl" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)

function(expect_no_policy)
    if(EXISTS "${policy}" OR EXISTS "${policy}.kept")
        message(FATAL_ERROR "install-deps.sh leaves a policy for services behind")
    endif()
endfunction()

function(expect_the_administrators_policy)
    file(READ "${policy}" kept)
    if(NOT kept STREQUAL "#!/bin/sh\nexit 0\n" OR EXISTS "${policy}.kept")
        message(FATAL_ERROR "install-deps.sh does not keep the system's policy for services: ${kept}")
    endif()
endfunction()

expect_installed(corba omniorb-nameserver)
expect_no_policy()

# After one that was killed: without a policy of the system, and with one.
file(COPY_FILE "${WORK_DIR}/left" "${policy}")
expect_installed(corba omniorb-nameserver)
expect_no_policy()

file(WRITE "${policy}" "#!/bin/sh\nexit 0\n")
expect_installed(corba omniorb-nameserver)
expect_the_administrators_policy()

file(RENAME "${policy}" "${policy}.kept")
file(COPY_FILE "${WORK_DIR}/left" "${policy}")
expect_installed(corba omniorb-nameserver)
expect_the_administrators_policy()
