# lifecycle_bench and the plug-ins that it loads: some hundreds of copies of one bundle.
set(ZO_LIFECYCLE_PARTS "${PROJECT_BINARY_DIR}/bench/parts")
set(ZO_LIFECYCLE_BUNDLES 500 CACHE STRING "Bundles that lifecycle_bench measures with, at most")
mark_as_advanced(ZO_LIFECYCLE_BUNDLES)

# zo_lifecycle_parts(<kind> <source> [<definition>...])
function(zo_lifecycle_parts kind source)
    add_library(zo_lifecycle_${kind} OBJECT "${CMAKE_CURRENT_SOURCE_DIR}/lifecycle/${source}")
    zo_compile_options(zo_lifecycle_${kind})
    target_include_directories(zo_lifecycle_${kind} PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}")
    target_compile_definitions(zo_lifecycle_${kind} PRIVATE ${ARGN})
    target_link_libraries(zo_lifecycle_${kind} PRIVATE zo::bundlemgr)
    set(libraries "$<TARGET_LINKER_FILE:zo_bundlemgr>" "$<TARGET_LINKER_FILE:ACE::ACE>")
    if(kind STREQUAL poco)
        set(libraries "$<TARGET_LINKER_FILE:Poco::Foundation>")
    endif()
    add_custom_command(
        OUTPUT "${ZO_LIFECYCLE_PARTS}/${kind}.stamp"
        COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/lifecycle/link_parts.sh" "${CMAKE_CXX_COMPILER}"
                "$<TARGET_OBJECTS:zo_lifecycle_${kind}>" ${kind} ${ZO_LIFECYCLE_BUNDLES} "${ZO_LIFECYCLE_PARTS}"
                ${libraries}
        COMMAND "${CMAKE_COMMAND}" -E touch "${ZO_LIFECYCLE_PARTS}/${kind}.stamp"
        DEPENDS zo_lifecycle_${kind} $<TARGET_OBJECTS:zo_lifecycle_${kind}>
                "${CMAKE_CURRENT_SOURCE_DIR}/lifecycle/link_parts.sh"
        COMMENT "Linking ${ZO_LIFECYCLE_BUNDLES} libraries of the kind \"${kind}\""
        VERBATIM)
    target_sources(lifecycle_bench PRIVATE "${ZO_LIFECYCLE_PARTS}/${kind}.stamp")
endfunction()

add_executable(lifecycle_bench lifecycle_bench.cpp lifecycle/measures.cpp)
zo_compile_options(lifecycle_bench)
target_include_directories(lifecycle_bench PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}")
target_compile_definitions(lifecycle_bench PRIVATE ZO_LIFECYCLE_PARTS="${ZO_LIFECYCLE_PARTS}")
target_link_libraries(lifecycle_bench PRIVATE zo::bundlemgr)
set_target_properties(lifecycle_bench PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bench")

zo_lifecycle_parts(own part.cpp PART_BUNDLE PART_SERVICES)
zo_lifecycle_parts(far part.cpp PART_BUNDLE)
zo_lifecycle_parts(svc part.cpp PART_SERVICES)
zo_lifecycle_parts(raw part.cpp PART_SERVICES PART_RAW)
if(Poco_FOUND)
    zo_lifecycle_parts(poco pocopart.cpp)
    target_link_libraries(zo_lifecycle_poco PRIVATE Poco::Foundation)
    target_link_libraries(lifecycle_bench PRIVATE Poco::Foundation)
    target_compile_definitions(lifecycle_bench PRIVATE ZO_BENCH_POCO)
else()
    message(STATUS "Poco not found: lifecycle_bench runs without its class loader")
endif()
