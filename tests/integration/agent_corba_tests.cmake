# The CORBA side of the agent. Without omniORB the one test that is left says so.
find_package(OmniORB QUIET)
find_program(ZO_OMNINAMES omniNames PATHS /usr/sbin /usr/local/sbin)
find_program(ZO_OMNIEVENTS omniEvents PATHS /usr/sbin /usr/local/sbin)
mark_as_advanced(ZO_OMNINAMES ZO_OMNIEVENTS)

add_executable(agent_corba_test agent_corba_test.cpp)
zo_compile_options(agent_corba_test)
target_include_directories(agent_corba_test PRIVATE "${PROJECT_SOURCE_DIR}/tests")
target_link_libraries(agent_corba_test PRIVATE GTest::gtest_main)
if(TARGET zo_alarm_idl)
    target_compile_definitions(agent_corba_test PRIVATE
        ZO_HAVE_CORBA=1
        ZO_AGENT="$<TARGET_FILE:zo_agent>"
        ZO_NMS="$<TARGET_FILE:zo_nms>"
        ZO_EXAMPLES_DIR="${PROJECT_SOURCE_DIR}/examples"
        ZO_OMNINAMES="$<$<BOOL:${ZO_OMNINAMES}>:${ZO_OMNINAMES}>"
        ZO_OMNIEVENTS="$<$<BOOL:${ZO_OMNIEVENTS}>:${ZO_OMNIEVENTS}>")
    target_link_libraries(agent_corba_test PRIVATE zo_alarm_idl)
    add_dependencies(agent_corba_test
        zo_agent zo_nms
        zo_base_bundle AlarmSvc HeartbeatSvc
        zo_domain_bundle FeedSvc StatisticsSvc
        zo_corba_bundle OrbSvc NamingSvc NotifySvc)
else()
    target_compile_definitions(agent_corba_test PRIVATE ZO_HAVE_CORBA=0)
endif()
zo_discover_tests(agent_corba_test)
