# The CORBA side of the agent. Without omniORB the one test that is left says so.
find_package(OmniORB QUIET)
find_program(ZO_OMNINAMES omniNames PATHS /usr/sbin /usr/local/sbin)
find_program(ZO_OMNIEVENTS omniEvents PATHS /usr/sbin /usr/local/sbin)
mark_as_advanced(ZO_OMNINAMES ZO_OMNIEVENTS)

if(NOT TARGET zo_alarm_idl)
    add_executable(agent_corba_absent_test agent_corba_absent_test.cpp)
    zo_compile_options(agent_corba_absent_test)
    target_link_libraries(agent_corba_absent_test PRIVATE GTest::gtest_main)
    zo_discover_tests(agent_corba_absent_test)
    return()
endif()

foreach(subject acl alarms events giop iterator life load naming nms runs)
    set(name agent_corba_${subject}_test)
    add_executable(${name} ${name}.cpp)
    zo_compile_options(${name})
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
    target_compile_definitions(${name} PRIVATE
        ZO_AGENT="$<TARGET_FILE:zo_agent>"
        ZO_NMS="$<TARGET_FILE:zo_nms>"
        ZO_SANITIZE="${ZO_SANITIZE}"
        ZO_EXAMPLES_DIR="${PROJECT_SOURCE_DIR}/examples"
        ZO_OMNINAMES="$<$<BOOL:${ZO_OMNINAMES}>:${ZO_OMNINAMES}>"
        ZO_OMNIEVENTS="$<$<BOOL:${ZO_OMNIEVENTS}>:${ZO_OMNIEVENTS}>")
    target_link_libraries(${name} PRIVATE zo_alarm_idl GTest::gtest_main)
    add_dependencies(${name}
        zo_agent zo_nms
        zo_base_bundle AlarmSvc HeartbeatSvc
        zo_domain_bundle FeedSvc StatisticsSvc
        zo_ascii_bundle AsciiSvc
        zo_corba_bundle OrbSvc NamingSvc NotifySvc)
    zo_discover_tests(${name})
endforeach()
