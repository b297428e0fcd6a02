# GNU libiconv in a prefix of its own, which is on nobody's search path: whoever uses the
# installed library need not know where it is, nor, when it is static, that there is one.
# Needs VIAS (package, pkgconfig, separated by "|"), LIBRARY_SOURCE, GENERATED_DIR, WORK_DIR,
# READELF, PKG_CONFIG and what consume.cmake needs.
cmake_minimum_required(VERSION 3.22)
include("${CMAKE_CURRENT_LIST_DIR}/consume.cmake")
string(REPLACE "|" ";" VIAS "${VIAS}")

# build_library(<libiconv> <prefix>): builds the library with it, in the one build directory, and
# installs it to <prefix>.
function(build_library libiconv prefix)
    run("configuring the library" COMMAND "${CMAKE_COMMAND}" -S "${WORK_DIR}/source" -B "${WORK_DIR}/library"
        -G "${GENERATOR}" "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}" -DCMAKE_BUILD_TYPE=Debug
        -DZO_BUILD_TESTS=OFF -DZO_BUILD_EXAMPLES=OFF -DZO_BUILD_TOOLS=OFF
        -U ZO_HAVE_GNU_LIBICONV "-DLIBICONV_LIBRARY=${libiconv}"
        OUTPUT output)
    expect_text("${output}" "ZO_HAVE_GNU_LIBICONV - Success")
    run("building the library" COMMAND "${CMAKE_COMMAND}" --build "${WORK_DIR}/library" --parallel 2)
    install_library("${WORK_DIR}/library" "${prefix}" libraryDir)
    set(libraryDir "${libraryDir}" PARENT_SCOPE)
endfunction()

function(expect_no_symbols_of_libiconv library)
    run("reading symbols" COMMAND "${READELF}" -W --dyn-syms "${library}" OUTPUT symbols)
    if(symbols MATCHES "libiconv")
        message(FATAL_ERROR "${library} exports or needs what a static libiconv should keep inside:\n${symbols}")
    endif()
endfunction()

file(REMOVE_RECURSE "${WORK_DIR}")
set(iconv "${WORK_DIR}/iconv")
run("configuring libiconv" COMMAND "${CMAKE_COMMAND}" -S "${CMAKE_CURRENT_LIST_DIR}/libiconv"
    -B "${WORK_DIR}/iconv-build" -G "${GENERATOR}" "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}"
    "-DLIBRARY_SOURCE=${LIBRARY_SOURCE}" "-DGENERATED_DIR=${GENERATED_DIR}")
run("building libiconv" COMMAND "${CMAKE_COMMAND}" --build "${WORK_DIR}/iconv-build" --parallel 2)
run("installing libiconv" COMMAND "${CMAKE_COMMAND}" --install "${WORK_DIR}/iconv-build" --prefix "${iconv}")

# A source tree beside that prefix: what is inside the tree is no place to find libraries.
foreach(part CMakeLists.txt cmake include src)
    file(COPY "${LIBRARY_SOURCE}/${part}" DESTINATION "${WORK_DIR}/source")
endforeach()

set(prefix "${WORK_DIR}/with-shared")
build_library("${iconv}/shared/lib/libiconv.so" "${prefix}")
foreach(via IN LISTS VIAS)
    consume(${via} "${WORK_DIR}/shared-${via}" "${libraryDir}" "-DCMAKE_PREFIX_PATH=${prefix}")
endforeach()
if("pkgconfig" IN_LIST VIAS)
    run("asking pkg-config" COMMAND "${CMAKE_COMMAND}" -E env "PKG_CONFIG_PATH=${libraryDir}/pkgconfig"
        "${PKG_CONFIG}" --libs --static zo_bundlemgr OUTPUT libs)
    expect_text("${libs}" "-L${iconv}/shared/lib")
    expect_text("${libs}" "-liconv")
endif()

set(prefix "${WORK_DIR}/with-static")
build_library("${iconv}/static/lib/libiconv.a" "${prefix}")
expect_no_symbols_of_libiconv("${libraryDir}/libzo_bundlemgr.so")
consume(package "${WORK_DIR}/static-package" "${libraryDir}" "-DCMAKE_PREFIX_PATH=${prefix}")
