# What the tests of the installed library share. Needs SOURCE_DIR, the consumer's, GENERATOR
# and CXX_COMPILER.
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

# install_library(<build directory> <prefix> <result>): <result> is where the library lies then.
function(install_library build prefix result)
    run("installing" COMMAND "${CMAKE_COMMAND}" --install "${build}" --prefix "${prefix}")
    file(GLOB_RECURSE library "${prefix}/*/libzo_bundlemgr.so")
    get_filename_component(libraryDir "${library}" DIRECTORY)
    set(${result} "${libraryDir}" PARENT_SCOPE)
endfunction()

# consume(<via> <directory> <directory of the library> [<argument of cmake>...]): builds the
# consumer and runs it with nothing but that one directory on the loader's search path.
function(consume via dir libraryDir)
    set(build "${dir}/build")
    run("configuring" COMMAND "${CMAKE_COMMAND}" -S "${SOURCE_DIR}" -B "${build}" -G "${GENERATOR}"
        "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}" "-DCONSUMER_VIA=${via}" ${ARGN})
    run("building" COMMAND "${CMAKE_COMMAND}" --build "${build}" --parallel 2)

    set(root "${dir}/root")
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
    expect_text("${output}" "consumer_host: D6D0 is E4B8AD\n")

    file(GLOB log "${root}/log/Develop/nbi/Agent_CORBA/pnbi_sys_*.log")
    file(READ "${log}" records)
    expect_text("${records}" "Loading ... (libconsumer_bundle.so)")
    expect_text("${records}" "========== Fini Bundle --- consumer_bundle ==========")
endfunction()
