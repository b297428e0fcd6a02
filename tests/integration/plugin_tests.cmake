add_subdirectory("${PROJECT_SOURCE_DIR}/tests/fixtures" fixtures)

add_executable(zo_test_host host.cpp)
zo_compile_options(zo_test_host)
target_include_directories(zo_test_host PRIVATE ${PROJECT_SOURCE_DIR}/tests)
target_link_libraries(zo_test_host PRIVATE zo::bundlemgr ${CMAKE_DL_LIBS})

# zo_add_plugin_test(<file>_test [<property> <value>...]): tests with properties for ctest
function(zo_add_plugin_test name)
    add_executable(${name} ${name}.cpp)
    zo_compile_options(${name})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    target_compile_definitions(${name} PRIVATE
        ZO_TEST_HOST="$<TARGET_FILE:zo_test_host>"
        ZO_TEST_PLUGIN_DIR="${ZO_TEST_PLUGIN_DIR}"
        ZO_TEST_PARSER_LEAKS="${CMAKE_CURRENT_SOURCE_DIR}/parser.supp")
    target_link_libraries(${name} PRIVATE zo::bundlemgr GTest::gtest_main GTest::gmock)
    zo_discover_tests(${name} ${ARGN})
endfunction()

zo_add_plugin_test(bundles_test)
zo_add_plugin_test(services_test)
zo_add_plugin_test(plugins_test)
zo_add_plugin_test(kit_test)

# A host that takes part: its plug-ins ask it what to do, and find it by its symbols.
foreach(subject birth end shutdown)
    zo_add_plugin_test(threads_${subject}_test ENVIRONMENT "LD_LIBRARY_PATH=${ZO_TEST_PLUGIN_DIR}")
    set_target_properties(threads_${subject}_test PROPERTIES ENABLE_EXPORTS ON)
    add_dependencies(threads_${subject}_test fx_hooked)
endforeach()
