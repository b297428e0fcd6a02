# Builds the consumer next to this file and runs it. Needs VIA, SOURCE_DIR, LIBRARY_SOURCE,
# LIBRARY_BUILD, WORK_DIR, GENERATOR and CXX_COMPILER.
function(run what)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "OUTPUT" "COMMAND")
    execute_process(COMMAND ${arg_COMMAND}
        RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${what} failed (${result}):\n${output}")
    endif()
    if(arg_OUTPUT)
        set(${arg_OUTPUT} "${output}" PARENT_SCOPE)
    endif()
endfunction()

function(expect_text output text)
    string(FIND "${output}" "${text}" position)
    if(position EQUAL -1)
        message(FATAL_ERROR "\"${text}\" is missing in:\n${output}")
    endif()
endfunction()

file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")
set(build "${WORK_DIR}/build")
set(options "")
if(VIA STREQUAL "subdirectory")
    list(APPEND options "-DCONSUMER_LIBRARY_SOURCE=${LIBRARY_SOURCE}")
    set(libraryDir "${build}/library/lib")
else()
    run("installing" COMMAND "${CMAKE_COMMAND}" --install "${LIBRARY_BUILD}" --prefix "${prefix}")
    file(GLOB_RECURSE library "${prefix}/*/libzo_bundlemgr.so")
    get_filename_component(libraryDir "${library}" DIRECTORY)
    list(APPEND options "-DCMAKE_PREFIX_PATH=${prefix}")
endif()

run("configuring" COMMAND "${CMAKE_COMMAND}" -S "${SOURCE_DIR}" -B "${build}" -G "${GENERATOR}"
    "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}" "-DCONSUMER_VIA=${VIA}" ${options})
run("building" COMMAND "${CMAKE_COMMAND}" --build "${build}" --parallel 2)

set(root "${WORK_DIR}/root")
file(MAKE_DIRECTORY "${root}/nbi" "${root}/log")
file(WRITE "${root}/etc/oss_cfg/nbi/conf/bundlemgr.cfg" "Bundle=consumer_bundle\n")
file(WRITE "${root}/etc/oss_cfg/nbi/conf/consumer_bundle/svc.cfg" "# no services\n")
run("running"
    COMMAND "${CMAKE_COMMAND}" -E env
        "KORU_SERVER_PATH=${root}" "_APP_SHARE_DIR=${root}/share" "_APP_LOG_DIR=${root}/log"
        "LD_LIBRARY_PATH=${libraryDir}:${build}"
        "${build}/consumer_host"
    OUTPUT output)
expect_text("${output}" "consumer_host: greetings from consumer_bundle\n")

file(GLOB log "${root}/log/Develop/nbi/Agent_CORBA/pnbi_sys_*.log")
file(READ "${log}" records)
expect_text("${records}" "Loading ... (libconsumer_bundle.so)")
expect_text("${records}" "========== Fini Bundle --- consumer_bundle ==========")
