# Finds ACE, the ADAPTIVE Communication Environment. Defines ACE::ACE.
find_path(ACE_INCLUDE_DIR NAMES ace/ACE.h)
find_library(ACE_LIBRARY NAMES ACE)

if(ACE_INCLUDE_DIR AND EXISTS "${ACE_INCLUDE_DIR}/ace/Version.h")
    file(STRINGS "${ACE_INCLUDE_DIR}/ace/Version.h" _ace_version
        REGEX "#define ACE_VERSION +\"[0-9.]+\"")
    string(REGEX MATCH "[0-9]+\\.[0-9]+(\\.[0-9]+)?" ACE_VERSION "${_ace_version}")
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(ACE
    REQUIRED_VARS ACE_LIBRARY ACE_INCLUDE_DIR
    VERSION_VAR ACE_VERSION
    REASON_FAILURE_MESSAGE "install libace-dev, or run scripts/install-deps.sh")

if(ACE_FOUND AND NOT TARGET ACE::ACE)
    add_library(ACE::ACE UNKNOWN IMPORTED)
    set_target_properties(ACE::ACE PROPERTIES
        IMPORTED_LOCATION "${ACE_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${ACE_INCLUDE_DIR}")
endif()
mark_as_advanced(ACE_INCLUDE_DIR ACE_LIBRARY)
