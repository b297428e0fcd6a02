# The agent as a child process, with real configuration and real clients.
zo_add_bundle(zo_hold_bundle SOURCES "${PROJECT_SOURCE_DIR}/tests/fixtures/agent/zo_hold_bundle.cpp")
set_target_properties(zo_hold_bundle PROPERTIES
    LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests/fixtures/agent")

function(zo_add_agent_test name)
    add_executable(${name} ${name}.cpp)
    zo_compile_options(${name})
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
    target_compile_definitions(${name} PRIVATE
        ZO_AGENT="$<TARGET_FILE:zo_agent>"
        ZO_ASCII_CLIENT="$<TARGET_FILE:zo_ascii_client>"
        ZO_EXAMPLES_DIR="${PROJECT_SOURCE_DIR}/examples"
        ZO_SANITIZE="${ZO_SANITIZE}"
        ZO_FIXTURES_DIR="${PROJECT_BINARY_DIR}/tests/fixtures/agent")
    target_link_libraries(${name} PRIVATE zo::bundlemgr GTest::gtest_main)
    add_dependencies(${name}
        zo_agent zo_ascii_client zo_hold_bundle
        zo_base_bundle AlarmSvc HeartbeatSvc
        zo_domain_bundle FeedSvc StatisticsSvc
        zo_ascii_bundle AsciiSvc)
    zo_discover_tests(${name})
endfunction()

foreach(subject acl feed life load options path portfile settings signals text)
    zo_add_agent_test(agent_${subject}_test)
endforeach()

add_executable(agentparts_test
    agentparts_test.cpp
    "${PROJECT_SOURCE_DIR}/examples/agent/lossreport.cpp"
    "${PROJECT_SOURCE_DIR}/examples/bundles/zo_base_bundle/alarmtableimpl.cpp"
    "${PROJECT_SOURCE_DIR}/examples/bundles/zo_domain_bundle/feedfollower.cpp"
    "${PROJECT_SOURCE_DIR}/examples/clients/changejudge.cpp")
zo_compile_options(agentparts_test)
target_include_directories(agentparts_test PRIVATE
    "${PROJECT_SOURCE_DIR}/tests" "${PROJECT_SOURCE_DIR}/examples/agent"
    "${PROJECT_SOURCE_DIR}/examples/bundles/zo_base_bundle"
    "${PROJECT_SOURCE_DIR}/examples/bundles/zo_domain_bundle" "${PROJECT_SOURCE_DIR}/examples/clients")
target_link_libraries(agentparts_test PRIVATE zo_alarm_model GTest::gtest_main)
zo_discover_tests(agentparts_test)

# The functions that it puts in place of the C library's must be found by the libraries.
add_executable(agentparts_failures_test agentparts_failures_test.cpp)
zo_compile_options(agentparts_failures_test)
set_target_properties(agentparts_failures_test PROPERTIES ENABLE_EXPORTS ON)
target_include_directories(agentparts_failures_test PRIVATE "${PROJECT_SOURCE_DIR}/tests")
target_link_libraries(agentparts_failures_test PRIVATE zo_alarm_model GTest::gtest_main ${CMAKE_DL_LIBS})
zo_discover_tests(agentparts_failures_test)
