# Chooses GNU libiconv where it is installed, else the stand-in over the C library. A
# libiconv of another make, without GNU's own names, does not count.
include(CheckCXXSourceCompiles)
include(CMakePushCheckState)

find_library(LIBICONV_LIBRARY NAMES iconv libiconv)
mark_as_advanced(LIBICONV_LIBRARY)
if(LIBICONV_LIBRARY)
    cmake_push_check_state(RESET)
    set(CMAKE_REQUIRED_LIBRARIES "${LIBICONV_LIBRARY}")
    check_cxx_source_compiles("
        extern \"C\" void* libiconv_open(const char*, const char*);
        extern \"C\" int libiconvctl(void*, int, void*);
        int main() { return libiconvctl(libiconv_open(\"UTF-8\", \"GBK\"), 6, nullptr); }"
        ZO_HAVE_GNU_LIBICONV)
    cmake_pop_check_state()
endif()

if(ZO_HAVE_GNU_LIBICONV)
    target_compile_definitions(zo_bundlemgr_objects PUBLIC ZO_HAVE_GNU_LIBICONV)
    target_link_libraries(zo_bundlemgr_objects PUBLIC "${LIBICONV_LIBRARY}")
else()
    # Made while building, so that those who run the library need no part of the C library
    # that some systems pack by itself.
    set(ZO_GENERATED_DIR "${PROJECT_BINARY_DIR}/generated")
    set(ZO_GBK_TABLE "${ZO_GENERATED_DIR}/src/platform/iconv/gbktable.inc")
    file(MAKE_DIRECTORY "${ZO_GENERATED_DIR}/src/platform/iconv")
    add_executable(zo_makegbktable platform/iconv/makegbktable.cpp)
    target_compile_features(zo_makegbktable PRIVATE cxx_std_17)
    target_include_directories(zo_makegbktable PRIVATE ${PROJECT_SOURCE_DIR})
    add_custom_command(
        OUTPUT "${ZO_GBK_TABLE}"
        COMMAND zo_makegbktable "${ZO_GBK_TABLE}"
        DEPENDS zo_makegbktable
        COMMENT "Making the table of GBK"
        VERBATIM)
    add_custom_target(zo_gbk_table DEPENDS "${ZO_GBK_TABLE}")
    add_dependencies(zo_generated_sources zo_gbk_table)
    add_dependencies(zo_bundlemgr_objects zo_gbk_table)
    include("${CMAKE_CURRENT_LIST_DIR}/standin.cmake")
    target_sources(zo_bundlemgr_objects PRIVATE ${ZO_ICONV_STANDIN_SOURCES})
    target_include_directories(zo_bundlemgr_objects PRIVATE "${ZO_GENERATED_DIR}")
endif()

# zo_hide_static_libiconv(<target>): a static libiconv stays inside the library that it was
# linked into. Exported, its functions would come before those of another copy that the
# process has.
function(zo_hide_static_libiconv target)
    if(ZO_HAVE_GNU_LIBICONV AND LIBICONV_LIBRARY MATCHES "/([^/]+\\.a)$")
        target_link_options(${target} PRIVATE "LINKER:--exclude-libs,${CMAKE_MATCH_1}")
    endif()
endfunction()
