# Finds omniORB, its IDL compiler, and the event service's stubs that omniEvents brings.
# Defines omniORB::omniORB, omniORB::omniEvents and
#
#   omniorb_add_idl_library(<target> <file>.idl)
#       the shared library <target> with the stubs and skeletons of an IDL file, and on
#       its include path their header <file>.hh; <target>_stubs only generates them
find_path(OmniORB_INCLUDE_DIR NAMES omniORB4/CORBA.h)
find_path(OmniORB_EVENTS_INCLUDE_DIR NAMES omniEvents/CosEventChannelAdmin.hh)
find_library(OmniORB_LIBRARY NAMES omniORB4)
find_library(OmniORB_DYNAMIC_LIBRARY NAMES omniDynamic4)
find_library(OmniORB_THREAD_LIBRARY NAMES omnithread)
find_library(OmniORB_EVENTS_LIBRARY NAMES omniEvents)
find_program(OmniORB_IDL_COMPILER NAMES omniidl)

if(OmniORB_INCLUDE_DIR AND EXISTS "${OmniORB_INCLUDE_DIR}/omniORB4/acconfig.h")
    file(STRINGS "${OmniORB_INCLUDE_DIR}/omniORB4/acconfig.h" _omniorb_version REGEX "#define PACKAGE_VERSION ")
    string(REGEX MATCH "[0-9]+(\\.[0-9]+)+" OmniORB_VERSION "${_omniorb_version}")
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OmniORB
    REQUIRED_VARS
        OmniORB_LIBRARY OmniORB_DYNAMIC_LIBRARY OmniORB_THREAD_LIBRARY OmniORB_INCLUDE_DIR
        OmniORB_IDL_COMPILER OmniORB_EVENTS_LIBRARY OmniORB_EVENTS_INCLUDE_DIR
    VERSION_VAR OmniORB_VERSION)

if(OmniORB_FOUND AND NOT TARGET omniORB::omniORB)
    find_package(Threads REQUIRED)
    add_library(omniORB::omniORB UNKNOWN IMPORTED)
    set_target_properties(omniORB::omniORB PROPERTIES
        IMPORTED_LOCATION "${OmniORB_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${OmniORB_INCLUDE_DIR}"
        INTERFACE_LINK_LIBRARIES "${OmniORB_DYNAMIC_LIBRARY};${OmniORB_THREAD_LIBRARY};Threads::Threads")
    add_library(omniORB::omniEvents UNKNOWN IMPORTED)
    set_target_properties(omniORB::omniEvents PROPERTIES
        IMPORTED_LOCATION "${OmniORB_EVENTS_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${OmniORB_EVENTS_INCLUDE_DIR}"
        INTERFACE_LINK_LIBRARIES omniORB::omniORB)
endif()
mark_as_advanced(OmniORB_INCLUDE_DIR OmniORB_EVENTS_INCLUDE_DIR OmniORB_LIBRARY OmniORB_DYNAMIC_LIBRARY
    OmniORB_THREAD_LIBRARY OmniORB_EVENTS_LIBRARY OmniORB_IDL_COMPILER)

function(omniorb_add_idl_library target idl)
    get_filename_component(idl "${idl}" ABSOLUTE)
    get_filename_component(name "${idl}" NAME_WE)
    set(out "${CMAKE_CURRENT_BINARY_DIR}/${target}")
    file(MAKE_DIRECTORY "${out}")
    # -Wba: with the type codes that a value needs to travel in an Any.
    add_custom_command(
        OUTPUT "${out}/${name}.hh" "${out}/${name}SK.cc" "${out}/${name}DynSK.cc"
        COMMAND "${OmniORB_IDL_COMPILER}" -bcxx -Wba "-C${out}" "${idl}"
        DEPENDS "${idl}"
        COMMENT "Generating the stubs of ${name}.idl"
        VERBATIM)
    add_custom_target(${target}_stubs DEPENDS "${out}/${name}.hh")
    add_library(${target} SHARED "${out}/${name}SK.cc" "${out}/${name}DynSK.cc" "${out}/${name}.hh")
    add_dependencies(${target} ${target}_stubs)
    target_compile_features(${target} PUBLIC cxx_std_17)
    # Generated code: its warnings are nobody's. Its classes are shared by all who link
    # it, so unlike our own they must stay visible.
    target_compile_options(${target} PRIVATE -w)
    target_include_directories(${target} SYSTEM INTERFACE "${out}")
    target_include_directories(${target} PRIVATE "${out}")
    target_link_libraries(${target} PUBLIC omniORB::omniORB)
endfunction()
